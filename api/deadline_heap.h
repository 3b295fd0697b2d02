// Which of many running Collections has to be looked at first.
#ifndef VT_API_DEADLINE_HEAP_H
#define VT_API_DEADLINE_HEAP_H

#include <cstddef>
#include <cstdlib>
#include <utility>

#include "api/collection.h"

namespace vt::api {

// DeadlineHeap is a binary heap by the wake of its members, each of which knows its place, so that
// it can be moved or taken out. It owns its array alone. A zero-filled one is empty.
class DeadlineHeap {
 public:
  [[nodiscard]] bool empty() const { return size_ == 0; }
  [[nodiscard]] ReplyCollection& first() const { return *members_[0]; }
  [[nodiscard]] ReplyCollection& last() const { return *members_[size_ - 1]; }

  // Reserve makes room for so many members, or returns false without memory.
  [[nodiscard]] bool Reserve(std::size_t count) {
    if (count <= capacity_) return true;
    const std::size_t capacity = count + count / 2;
    void* members = std::realloc(members_, capacity * sizeof(ReplyCollection*));
    if (members == nullptr) return false;
    members_ = static_cast<ReplyCollection**>(members);
    capacity_ = capacity;
    return true;
  }

  // Add needs room.
  void Add(ReplyCollection& member) {
    Put(size_++, member);
    Rise(member);
  }

  void Remove(ReplyCollection& member) {
    ReplyCollection& moved = *members_[--size_];
    if (&moved == &member) return;
    Put(member.member.place, moved);
    Moved(moved);
  }

  // Moved restores the order after the wake of a member has changed.
  void Moved(ReplyCollection& member) {
    Rise(member);
    Sink(member);
  }

  void Release() { std::free(std::exchange(members_, nullptr)); }

 private:
  static Milliseconds WakeOf(const ReplyCollection& member) { return member.member.wake; }

  void Put(std::size_t place, ReplyCollection& member) {
    members_[place] = &member;
    member.member.place = place;
  }

  void Swap(ReplyCollection& a, ReplyCollection& b) {
    const std::size_t place = a.member.place;
    Put(b.member.place, a);
    Put(place, b);
  }

  void Rise(ReplyCollection& member) {
    while (member.member.place != 0) {
      ReplyCollection& parent = *members_[(member.member.place - 1) / 2];
      if (WakeOf(parent) <= WakeOf(member)) return;
      Swap(parent, member);
    }
  }

  void Sink(ReplyCollection& member) {
    for (;;) {
      std::size_t child = 2 * member.member.place + 1;
      if (child >= size_) return;
      if (child + 1 < size_ && WakeOf(*members_[child + 1]) < WakeOf(*members_[child])) ++child;
      if (WakeOf(member) <= WakeOf(*members_[child])) return;
      Swap(member, *members_[child]);
    }
  }

  ReplyCollection** members_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace vt::api

#endif  // VT_API_DEADLINE_HEAP_H
