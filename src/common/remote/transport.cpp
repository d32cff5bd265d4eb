#include "transport.h"

TRANSPORT& TRANSPORT_OF(const HOST& host)
{
    return host.bLocal ? LOCAL_TRANSPORT() : SSH_TRANSPORT();
}
