/*
 * The public interface of libvtapi: query and configure the devices of a power-management network
 * over the Voltaris protocol. An application includes this header and nothing else.
 */
#ifndef VTAPI_H
#define VTAPI_H

/* The order is the one to read them in. */
/* clang-format off */

/* What a client needs. */
#include "vtapi/session.h"
#include "vtapi/query.h"
#include "vtapi/result.h"
#include "vtapi/result_cursor.h"
#include "vtapi/collection.h"
#include "vtapi/fleet.h"
#include "vtapi/catalogue.h"
#include "vtapi/enumerations.h"
#include "vtapi/log.h"
#include "vtapi/version.h"

/* What an endpoint needs besides. */
#include "vtapi/event.h"
#include "vtapi/aggregate.h"
#include "vtapi/pdu.h"
#include "vtapi/socket.h"
#include "vtapi/reception.h"
#include "vtapi/filter.h"
#include "vtapi/keywords.h"
#include "vtapi/identifiers.h"
#include "vtapi/hmac.h"
#include "vtapi/dump.h"
#include "vtapi/queue.h"

/* The codec of single values and elements. */
#include "vtapi/values.h"
#include "vtapi/tlv.h"
#include "vtapi/structures.h"
#include "vtapi/scalars.h"

/* clang-format on */

#endif /* VTAPI_H */
