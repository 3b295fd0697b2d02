// The headers of net-snmp, for its library and its agent, in the one order in which they compile.
#ifndef VT_BENCH_NET_SNMP_H_
#define VT_BENCH_NET_SNMP_H_

#include <sys/types.h>

// clang-format off
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
// clang-format on

#endif  // VT_BENCH_NET_SNMP_H_
