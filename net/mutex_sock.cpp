// The process-wide lock around host-name resolution.
#include "tarvo/netconn.h"

extern "C" {

pthread_mutex_t g_mutex_sock = PTHREAD_MUTEX_INITIALIZER;

} // extern "C"
