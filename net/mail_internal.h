// The e-mail client's connection instance.
#ifndef TARVO_NET_MAIL_INTERNAL_H
#define TARVO_NET_MAIL_INTERNAL_H

#include "connection.h"

namespace tarvo::net
{

extern NetConn mailConn;

} // namespace tarvo::net

#endif
