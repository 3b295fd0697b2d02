#include "recording/anonymize.h"

#include <arpa/inet.h>
#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <utility>

namespace vt::recording {
namespace {

// Counted gives each text a number, from 1, the same for equal ones.
class Counted {
 public:
  std::size_t Of(const std::string& text) {
    return numbers_.try_emplace(text, numbers_.size() + 1).first->second;
  }

 private:
  std::unordered_map<std::string, std::size_t> numbers_;
};

// StandIns replaces texts of one kind by "kind-1", "kind-2" and so on.
class StandIns {
 public:
  explicit StandIns(std::string_view kind) : prefix_(std::string(kind) + '-') {}

  // For gives the stand-in; an empty text names nobody.
  std::string For(const std::string& text) {
    return text.empty() ? text : prefix_ + std::to_string(counted_.Of(text));
  }
  std::optional<std::string> For(const std::optional<std::string>& text) {
    return text ? std::optional(For(*text)) : std::nullopt;
  }

 private:
  std::string prefix_;
  Counted counted_;
};

// IsCalendar tells five fields of digits and * / , -, which name nobody.
bool IsCalendar(std::string_view text) {
  constexpr int fields = 5;
  constexpr std::size_t longest_field = 20;
  std::size_t in_field = 0;
  int count = 1;
  for (const char letter : text) {
    if (letter == ' ') {
      if (in_field == 0) return false;
      in_field = 0;
      ++count;
      continue;
    }
    const bool is_digit = letter >= '0' && letter <= '9';
    const bool is_mark = std::string_view("*/,-").find(letter) != std::string_view::npos;
    if (!(is_digit || is_mark) || ++in_field > longest_field) return false;
  }
  return count == fields && in_field > 0;
}

class Anonymizer {
 public:
  explicit Anonymizer(const AnonymityKey& key) {
    hmac_shainit(&key_, key.data(), static_cast<std::uint32_t>(key.size()));
  }

  void Work(Recording& recording) {
    recording.node = For(recording.node);
    recording.domain = domains_.For(recording.domain);
    for (Entity& entity : recording.entities) {
      entity.id.device = For(entity.id.device);
      // cppcheck-suppress constVariable; it is assigned to
      for (Neighbor& neighbor : entity.neighbors) neighbor.device = For(neighbor.device);
    }
    std::ranges::sort(recording.entities, {}, &Entity::id);
    for (Entity& entity : recording.entities) ReplaceTexts(entity);
  }

 private:
  // Identities are 32 digits as usual, whatever they were.
  voltaris::DeviceId For(const voltaris::DeviceId& id) const {
    std::array<std::uint8_t, VT_DIGEST_SIZE> digest{};
    hmac_sha_msg(&key_, id.bytes.data(), static_cast<std::uint32_t>(id.bytes.size()),
                 digest.data());
    constexpr std::string_view digits = "0123456789abcdef";
    voltaris::DeviceId made;
    for (std::size_t i = 0; i < made.bytes.size(); ++i) {
      const unsigned byte = digest.at(i / 2);
      made.bytes.at(i) = static_cast<std::uint8_t>(digits[i % 2 == 0 ? byte >> 4 : byte & 15]);
    }
    return made;
  }

  void ReplaceTexts(Entity& entity) {
    entity.role = roles_.For(entity.role);
    entity.name = names_.For(entity.name);
    if (entity.keywords) {
      for (std::string& keyword : *entity.keywords) keyword = keywords_.For(keyword);
    }
    entity.error_text = errors_.For(entity.error_text);
    entity.text_21 = texts_.For(entity.text_21);
    if (entity.address) entity.address = For(*entity.address);
    std::ranges::sort(entity.neighbors, {}, &Neighbor::device);
    // cppcheck-suppress constVariable; likewise
    for (Neighbor& neighbor : entity.neighbors) {
      neighbor.label = labels_.For(neighbor.label);
      neighbor.data = DataFor(neighbor.data);
    }
    std::sort(entity.neighbors.begin(), entity.neighbors.end());
    if (entity.recurrence && !IsCalendar(entity.recurrence->text)) {
      entity.recurrence->text = recurrences_.For(entity.recurrence->text);
    }
  }

  // Addresses are counted through the private network 10.0.0.0/8, all with the same port.
  AddressBytes For(const AddressBytes& address) {
    constexpr std::uint32_t first = 10u << 24;
    constexpr std::uint32_t hosts = 0xFFFFFF;
    constexpr std::uint16_t port = 7440;
    const std::size_t number = addresses_.Of({address.begin(), address.end()});
    sockaddr_in made{};
    made.sin_family = AF_INET;
    made.sin_port = htons(port);
    made.sin_addr.s_addr = htonl(first | (static_cast<std::uint32_t>(number) & hosts));
    AddressBytes bytes{};
    std::memcpy(bytes.data(), &made, bytes.size());
    return bytes;
  }

  std::string DataFor(const std::string& data) {
    AddressBytes address{};
    if (data.size() != address.size()) return std::string(data.size(), '\0');
    std::ranges::copy(data, address.begin());
    address = For(address);
    return {address.begin(), address.end()};
  }

  hmac_context key_{};
  StandIns domains_{"domain"};
  StandIns roles_{"role"};
  StandIns names_{"name"};
  StandIns keywords_{"keyword"};
  StandIns errors_{"error"};
  StandIns texts_{"text"};
  StandIns labels_{"label"};
  StandIns recurrences_{"recurrence"};
  Counted addresses_;
};

}  // namespace

AnonymityKey RandomKey() {
  AnonymityKey key{};
  // So few bytes come whole.
  if (getrandom(key.data(), key.size(), 0) != static_cast<ssize_t>(key.size())) {
    throw std::system_error(errno, std::generic_category(), "no random numbers");
  }
  return key;
}

void Anonymize(Recording& recording, const AnonymityKey& key) { Anonymizer(key).Work(recording); }

}  // namespace vt::recording
