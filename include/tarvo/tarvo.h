/* The whole public interface of libTarvo. */
#ifndef TARVO_TARVO_H
#define TARVO_TARVO_H

#include "semlock.h"
#include "ringbuf.h"
#include "profile.h"

#endif
