#include "node/host/nut.h"

#include <optional>
#include <utility>

#include "node/host/nut_connection.h"
#include "node/options.h"

namespace vt::node {
namespace {

constexpr const char* kRealPower = "ups.realpower";
constexpr const char* kLoad = "ups.load";
constexpr const char* kNominalPower = "ups.realpower.nominal";

double Required(NutConnection& server, const std::string& supply, const char* variable) {
  const std::optional<double> number = server.Number(supply, variable);
  if (number) return *number;
  throw NutError(Trouble::kGone, supply + " has no " + variable);
}

double Watts(NutConnection& server, const std::string& supply, bool tells_power) {
  if (tells_power) return Required(server, supply, kRealPower);
  const double load = Required(server, supply, kLoad);
  return load / 100 * Required(server, supply, kNominalPower);
}

// TellsPower is true as well while a supply does not answer for the moment: reading it tells why.
bool TellsPower(NutConnection& server, const std::string& supply) {
  try {
    return server.Variable(supply, kRealPower).has_value();
  } catch (const NutError& error) {
    if (error.trouble() == Trouble::kUnreachable) throw;
    return true;
  }
}

}  // namespace

NutSource::NutSource(const sockaddr_in& server, std::chrono::milliseconds patience,
                     MonotonicClock clock)
    : server_(server), patience_(patience), clock_(std::move(clock)) {}

Findings NutSource::Find() {
  supplies_.clear();
  Findings findings;
  try {
    NutConnection server(server_, patience_, clock_);
    for (const NutConnection::Listed& listed : server.List()) {
      const bool tells_power = TellsPower(server, listed.name);
      supplies_.push_back({listed.name, tells_power});
      const std::string& name = listed.description.empty() ? listed.name : listed.description;
      findings.entities.push_back({"nut/" + listed.name, PrintableText(name),
                                   tells_power ? Caliber::kMeasured : Caliber::kEstimated,
                                   Category::kMeter});
    }
    if (supplies_.empty()) findings.note = EndpointText(server_) + ": no supply";
  } catch (const NutError& error) {
    supplies_.clear();
    findings = {{}, EndpointText(server_) + ": " + error.what(), error.trouble()};
  }
  return findings;
}

std::vector<Reading> NutSource::Read() {
  std::vector<Reading> readings;
  if (supplies_.empty()) return readings;
  const std::string where = EndpointText(server_) + ": ";
  try {
    NutConnection server(server_, patience_, clock_);
    for (const Supply& supply : supplies_) {
      try {
        readings.push_back(PlausibleReading(1000 * Watts(server, supply.name, supply.tells_power),
                                            Category::kMeter, where + supply.name));
      } catch (const NutError& error) {
        if (error.trouble() == Trouble::kUnreachable) throw;
        readings.push_back(Reading::Failed(error.trouble(), where + error.what()));
      }
    }
  } catch (const NutError& error) {
    // Those that have been read keep their values.
    readings.resize(supplies_.size(), Reading::Failed(error.trouble(), where + error.what()));
  }
  return readings;
}

std::string NutSource::Advice(Trouble trouble) const {
  switch (trouble) {
    case Trouble::kDenied:
      return "The server lets this host read nothing; its list of addresses that it listens at, "
             "and\n"
             "the firewall or access lists before it, are the places to look.";
    case Trouble::kUnreachable:
      return "If this host has an uninterruptible supply, start its NUT server, and name another\n"
             "address than " +
             EndpointText(server_) + " with --nut HOST:PORT, or none with --nut off.";
    case Trouble::kGone:
      return "This supply tells neither ups.realpower nor both of ups.load and\n"
             "ups.realpower.nominal; the latter can be set by hand with an override in the\n"
             "configuration of its driver.";
    default:
      return "The driver of this supply may have lost it, or what listens at " +
             EndpointText(server_) + " is\nno NUT server.";
  }
}

}  // namespace vt::node
