// The system side of OPEN: opening a named file by STATUS= and ACTION=,
// and making scratch files.
#pragma once

#include <sys/types.h>

#include "connect/connect.h"

namespace qal {

// What a successful open leaves: the descriptor, the connection bits it
// allows (UF_CONNECTED with UF_READABLE and/or UF_WRITABLE, UF_SCRATCH for
// scratch files), and for a generated scratch name the name itself.
struct OpenedFile {
  int fd = -1;
  uint32_t flags = 0;
  char* generated_name = nullptr;
};

// Open `name` (null only for a scratch file without a name) for the word's
// STATUS= and ACTION=.  0, or the error number: an errno value or one of
// the library's numbers.
int open_by_status(uint32_t word, const char* name, OpenedFile* opened);

}  // namespace qal
