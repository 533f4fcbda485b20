// The f77 compatibility signal handler, as start-up installs it.
#pragma once

namespace qal {

// Puts __f90_signals_f77compat on every signal of f90_signals_id whose
// action is still the default; signals the program has set up keep theirs.
void install_f77_signal_handlers();

}  // namespace qal
