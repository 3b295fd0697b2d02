// The C++20 interface of libvtapi, for applications: sessions, queries, collections, fleets and
// results as types that own what they hold, in namespace voltaris. It is made of the C interface
// alone, in headers, and needs nothing but the standard library and POSIX; exceptions and RTTI may
// be disabled.
//
//   auto session = voltaris::Session::open("127.0.0.1", 7440);
//   auto lamps = voltaris::collect_query("office")
//                    .get(voltaris::name, voltaris::usage)
//                    .where(voltaris::role, "lamp");
//   auto results = session.value().execute(lamps);
//   for (const voltaris::Row row : results.value().rows()) {
//     std::cout << row.get(voltaris::name).value_or("-") << '\n';
//   }
//
// What fails gives an Expected that holds an Error; value() of it throws. Memory of the standard
// library's own that cannot be had is reported as the standard library does. Objects that were
// moved from are empty and can be asked all the same.
#ifndef VTAPI_HPP
#define VTAPI_HPP

// The order is the one to read them in.
// clang-format off
#include "vtapi/face/error.hpp"
#include "vtapi/face/identity.hpp"
#include "vtapi/face/key.hpp"
#include "vtapi/face/session.hpp"
#include "vtapi/face/query.hpp"
#include "vtapi/face/values.hpp"
#include "vtapi/face/attributes.hpp"
#include "vtapi/face/collection.hpp"
#include "vtapi/face/results.hpp"
#include "vtapi/face/row.hpp"
#include "vtapi/face/fleet.hpp"
#include "vtapi/face/log.hpp"
// clang-format on

#endif  // VTAPI_HPP
