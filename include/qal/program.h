/* Program-level entries: start-up of a compiled main program, STOP, PAUSE,
 * and the signal handler of f77 compatibility mode. */
#ifndef QAL_PROGRAM_H
#define QAL_PROGRAM_H

#include <pthread.h>
#include <signal.h>

#include "qal/abi.h"

QAL_BEGIN_DECLS

/* The command line the program started with, as __f90_init was given it.
 * A program may define its own copies. */
extern QAL_EXPORT int32_t __xargc;
extern QAL_EXPORT char** __xargv;

/* Start-up of a Fortran main program: keep the command line, open the
 * message catalogue, connect the default units.  The f77 form also catches
 * the signals of f90_signals_id whose action is still the default. */
QAL_EXPORT void __f90_init(int32_t argc, char** argv);
QAL_EXPORT void __f90_init_f77compat(int32_t argc, char** argv);
/* The same for a main program in another language, without the command
 * line. */
QAL_EXPORT void f_init(void);
/* Kept for old objects; they do nothing. */
QAL_EXPORT void f90_init(void);
QAL_EXPORT void f_exit(void);
QAL_EXPORT void __f90_exit_f77compat(void);

/* STOP.  Each writes all units and removes scratch files, prints its code
 * on stderr, and exits; only __f90_stop_int passes its code on as the
 * process status. */
QAL_EXPORT QAL_NORETURN void __f90_stop(void);
QAL_EXPORT QAL_NORETURN void __f90_stop_char(const char* text, int64_t length);
QAL_EXPORT QAL_NORETURN void __f90_stop_int(const int32_t* code);
QAL_EXPORT QAL_NORETURN void __f90_stop_nostatus(const int32_t* code);

/* PAUSE, with a null text for a PAUSE without code.  At a terminal the
 * program goes on after a line "go" and ends after anything else; without
 * one it waits for SIGINT. */
QAL_EXPORT void __f90_pause(const char* text, int64_t length);

/* Messages of catalogue set 4, read through __f90_psfmt. */
enum StopPauseFormat {
  PS_STOP_TEXT = 1,
  PS_STOP_NUMBER = 2,
  PS_PAUSE = 3,
  PS_PAUSE_TEXT = 4,
  PS_PAUSE_AT_TERMINAL = 5,
  PS_PAUSE_FOR_SIGINT = 6,
  PS_RESUMED = 7
};

/* Signals caught in f77 mode, ended by 0, and the names the handler prints
 * by signal number (index 0 is unused).  The names follow another system's
 * numbering: on Linux 7 prints as SIGEMT and 10 as SIGBUS. */
enum { F90_SIGNALS_ID_COUNT = 14, F90_SIGNALS_NAME_COUNT = 34 };
extern QAL_EXPORT const int32_t f90_signals_id[F90_SIGNALS_ID_COUNT];
extern QAL_EXPORT const char* const f90_signals_name[F90_SIGNALS_NAME_COUNT];

/* The handler runs one signal at a time (__f90_signal_pv) and writes its
 * lines under __f90_stderr_pv. */
extern QAL_EXPORT pthread_mutex_t __f90_signal_pv;
extern QAL_EXPORT pthread_mutex_t __f90_stderr_pv;

/* Writes all units, reports the signal on stderr and ends the process with
 * the same signal; a second signal meanwhile kills it with SIGKILL.  Seen
 * where <signal.h> declares siginfo_t, which a strict ISO C compile does
 * not. */
#if defined(__cplusplus) || (defined(_POSIX_C_SOURCE) && _POSIX_C_SOURCE >= 199309L)
QAL_EXPORT void __f90_signals_f77compat(int signal, siginfo_t* info, void* context);
#endif

QAL_END_DECLS

#endif
