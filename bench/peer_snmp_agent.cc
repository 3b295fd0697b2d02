// The agent that snmpbulkwalk walks in P5: net-snmp's own, with the table that table_probe serves
// in full replies, answered from an array in memory. It takes a whole GETBULK request at once and
// finds the place of the next one without searching, so that the agent's own part is as short as it
// can be. It prints its port and serves for ever; users come from its configuration file,
// bench.conf.
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "bench/content.h"
#include "bench/measure.h"
#include "bench/net_snmp.h"

namespace {

using namespace vt::bench;  // NOLINT(google-build-using-namespace): this program's own

// Two tables below the enterprise that is there for examples: the big one, and one of a single row
// behind it.
constexpr std::array<oid, 7> kRoot = {1, 3, 6, 1, 4, 1, 32473};
constexpr oid kBigTable = 1;
constexpr oid kOneRowTable = 2;

struct Cell {
  std::array<oid, kRoot.size() + 5> name;  // table, entry, column, device, entity
  bool is_text;
  Value value;
};

class Cells {
 public:
  Cells() {
    const Shape shape = TableShape();
    std::size_t rows = 0;
    std::uint32_t device_number = 0;
    for (const Bytes& reply : TableInFullReplies(shape)) {
      for (const ContentDevice& device : ReadContent(reply, shape).devices) {
        ++device_number;
        for (const ContentRow& row : device.rows) {
          Add(kBigTable, device_number, row, shape);
          if (++rows == 1) Add(kOneRowTable, device_number, row, shape);
        }
      }
    }
    Require(rows == kTableRows, "agent: rows are missing");
    std::sort(cells_.begin(), cells_.end(),
              [](const Cell& a, const Cell& b) { return a.name < b.name; });
  }

  // AnswerNext answers variable with the cell behind its name; false at the end of the tables.
  bool AnswerNext(netsnmp_variable_list* variable) {
    const Cell* const cell = Next(variable->name, variable->name_length);
    if (cell == nullptr) return false;
    snmp_set_var_objid(variable, cell->name.data(), cell->name.size());
    const long number = cell->value.number;
    const std::string& text = cell->value.text;
    if (cell->is_text) {
      snmp_set_var_typed_value(variable, ASN_OCTET_STR, text.data(), text.size());
    } else {
      snmp_set_var_typed_value(variable, ASN_INTEGER, &number, sizeof number);
    }
    return true;
  }

 private:
  void Add(oid table, oid device, const ContentRow& row, const Shape& shape) {
    for (std::size_t column = 0; column < kColumns; ++column) {
      Cell cell{{}, shape[column].size == 0, row.values[column]};
      const std::array<oid, 5> rest = {table, 1, column + 1, device, row.entity};
      std::copy(rest.begin(), rest.end(), std::copy(kRoot.begin(), kRoot.end(), cell.name.begin()));
      cells_.push_back(cell);
    }
  }

  // Walks go from cell to cell: the one behind the last answer is tried first.
  const Cell* Next(const oid* name, std::size_t length) {
    const auto is_before = [&](const Cell& cell) {
      return snmp_oid_compare(cell.name.data(), cell.name.size(), name, length) <= 0;
    };
    const bool follows =
        next_ > 0 && std::equal(name, name + length, cells_[next_ - 1].name.begin(),
                                cells_[next_ - 1].name.end());
    if (!follows) {
      next_ = static_cast<std::size_t>(
          std::partition_point(cells_.begin(), cells_.end(), is_before) - cells_.begin());
    }
    return next_ < cells_.size() ? &cells_[next_++] : nullptr;
  }

  std::vector<Cell> cells_;
  std::size_t next_ = 0;
};

int Answer(netsnmp_mib_handler*, netsnmp_handler_registration*, netsnmp_agent_request_info* info,
           netsnmp_request_info* requests) {
  static Cells cells;
  for (netsnmp_request_info* request = requests; request != nullptr; request = request->next) {
    if (request->processed != 0) continue;
    if (info->mode == MODE_GET) {
      netsnmp_set_request_error(info, request, SNMP_NOSUCHINSTANCE);
      continue;
    }
    if (!cells.AnswerNext(request->requestvb) || info->mode != MODE_GETBULK) continue;
    while (request->repeat > 0) {  // more than the one
      netsnmp_variable_list* const answered = request->requestvb;
      netsnmp_variable_list* const variable = answered->next_variable;
      snmp_set_var_objid(variable, answered->name, answered->name_length);
      request->requestvb = variable;
      --request->repeat;
      if (!cells.AnswerNext(variable)) break;
    }
  }
  return SNMP_ERR_NOERROR;
}

std::uint16_t OpenPort() {
  netsnmp_transport* const transport = netsnmp_transport_open_server("snmp", "udp:127.0.0.1:0");
  Require(transport != nullptr, "agent: no socket");
  sockaddr_in address{};
  socklen_t size = sizeof address;
  Require(getsockname(transport->sock, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
              netsnmp_register_agent_nsap(transport) != 0,
          "agent: no port");
  return ntohs(address.sin_port);
}

}  // namespace

int main() {
  // As many values in an answer as find room.
  netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_MAX_GETBULKREPEATS, -1);
  netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_MAX_GETBULKRESPONSES, -1);
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_DONT_LOG_TCPWRAPPERS_CONNECTS,
                         1);
  init_agent("bench");
  netsnmp_handler_registration* const registration = netsnmp_create_handler_registration(
      "bench", Answer, kRoot.data(), kRoot.size(), HANDLER_CAN_RONLY | HANDLER_CAN_GETBULK);
  Require(registration != nullptr && netsnmp_register_handler(registration) == MIB_REGISTERED_OK,
          "agent: no table");
  init_snmp("bench");
  std::printf("%u\n", static_cast<unsigned>(OpenPort()));
  std::fflush(stdout);
  for (;;) agent_check_and_process(1);
}
