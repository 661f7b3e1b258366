// Small questions about processes.
#include "procutl.h"

#include <cerrno>
#include <csignal>

int procutl_exists(pid_t pid) { return kill(pid, 0) == 0 || errno != ESRCH; }

int procutl_terminate(pid_t pid) { return kill(pid, SIGTERM) == 0 ? 0 : 1; }
