// Byte order of unformatted connections, chosen per file from an option
// table the program may supply.  No table is read yet, so every connection
// keeps the machine's own order.
#include "connect/connect.h"

namespace qal {

void apply_byte_swap_options(Unit*) {}

}  // namespace qal
