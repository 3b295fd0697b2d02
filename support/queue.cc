// The worker of each pair of calls logs under its own name; the plain calls and their m_ forms are
// the same.
#include "vtapi/queue.h"

#include "support/log.h"

namespace {

queue_element* Element(void* element) { return static_cast<queue_element*>(element); }

// NextOf gives the link of an element or, as the predecessor of the first one, of the queue record:
// the link is the first word of both.
queue_element*& NextOf(void* predecessor) { return *static_cast<queue_element**>(predecessor); }

bool IsLinked(const queue* q, const queue_element* element) {
  return element->next != nullptr || q->tail == element;
}

void LogLinkError(const char* function, const char* operation, const void* element,
                  const queue* q) {
  VT_LOG_AS(kError, function, "%s %p (%p)", operation, element, static_cast<const void*>(q));
}

// CountRemoval takes one off the depth and reports a negative one where a bound was set.
bool CountRemoval(queue* q, const char* function, const char* operation) {
  --q->depth;
  if (q->depth >= 0 || q->size == 0) return true;
  VT_LOG_AS(kError, function, "%s %p (%d)", operation, static_cast<void*>(q), q->depth);
  return false;
}

void CountRemovalAndRepair(queue* q, const char* function, const char* operation) {
  if (!CountRemoval(q, function, operation)) q->depth = 0;
}

// TakeOutNext unlinks the element behind prev, which is there, and moves the tail if it was the
// last.
void TakeOutNext(queue* q, void* prev) {
  queue_element*& link = NextOf(prev);
  queue_element* taken = link;
  link = taken->next;
  taken->next = nullptr;
  if (link == nullptr) q->tail = prev == q ? nullptr : Element(prev);
}

std::uint32_t enqueue_inline(queue* q, void* added) {
  if (q == nullptr || added == nullptr) return 0;
  queue_element* element = Element(added);
  if (IsLinked(q, element)) {
    LogLinkError(__func__, "enqueue_inline", element, q);
    return 0;
  }
  (q->tail == nullptr ? q->head : q->tail->next) = element;
  q->tail = element;
  ++q->depth;
  return 1;
}

std::uint32_t requeue_inline(queue* q, void* added) {
  if (q == nullptr || added == nullptr) return 0;
  queue_element* element = Element(added);
  if (IsLinked(q, element)) {
    LogLinkError(__func__, "requeue", element, q);
    return 0;
  }
  if (q->head != nullptr) {
    element->next = q->head;
  } else {
    q->tail = element;
  }
  q->head = element;
  ++q->depth;
  return 1;
}

void* dequeue_inline(queue* q) {
  if (q == nullptr || q->head == nullptr) return nullptr;
  queue_element* element = q->head;
  q->head = element->next;
  if (q->head == nullptr) {
    if (q->tail != element) LogLinkError(__func__, "dequeue", element, q);
    q->tail = nullptr;
  }
  element->next = nullptr;
  CountRemovalAndRepair(q, __func__, "dequeue");
  return element;
}

std::uint32_t unqueue_inline(queue* q, void* removed) {
  if (q == nullptr) {
    LogLinkError(__func__, "unqueue", removed, q);
    return 0;
  }
  void* prev = q;
  while (NextOf(prev) != nullptr && NextOf(prev) != removed) prev = NextOf(prev);
  if (NextOf(prev) == nullptr) {
    LogLinkError(__func__, "unqueue", removed, q);
    return 0;
  }
  TakeOutNext(q, prev);
  // Deliberate: a negative depth is reported but, unlike in the other removals, not repaired.
  (void)CountRemoval(q, __func__, "unqueue");
  return 1;
}

}  // namespace

extern "C" {

int queue_init(queue* q, std::int32_t size) {
  if (q == nullptr || size < 0) return 0;
  q->size = size;  // Deliberate: nothing else, so that a record with stale links keeps them.
  return 1;
}

std::int32_t queryqueuedepth(queue* q) { return q != nullptr ? q->depth : 0; }

std::int32_t queryqueuesize(queue* q) { return q != nullptr ? q->size : 0; }

void* peekqueuehead(queue* q) { return q != nullptr ? q->head : nullptr; }

void* peekqueuetail(queue* q) { return q != nullptr ? q->tail : nullptr; }

// cppcheck-suppress constParameter; as the public header has it
int checkqueue(queue* q, void* element) {
  if (q == nullptr || element == nullptr) return 0;
  const queue_element* at = q->head;
  while (at != nullptr && at != element) at = at->next;
  return at != nullptr ? 1 : 0;
}

std::uint32_t enqueue(queue* q, void* element) { return enqueue_inline(q, element); }
std::uint32_t m_enqueue(queue* q, void* element) { return enqueue_inline(q, element); }

std::uint32_t requeue(queue* q, void* element) { return requeue_inline(q, element); }
std::uint32_t m_requeue(queue* q, void* element) { return requeue_inline(q, element); }

std::uint32_t insqueue(queue* q, void* added, void* after) {
  if (after == nullptr) return requeue_inline(q, added);
  if (q == nullptr || added == nullptr) return 0;
  queue_element* element = Element(added);
  if (IsLinked(q, element)) {
    LogLinkError(__func__, "insqueue", element, q);
    return 0;
  }
  queue_element* before = Element(after);
  element->next = before->next;
  before->next = element;
  if (element->next == nullptr) q->tail = element;
  ++q->depth;
  return 1;
}

std::uint32_t queue_insert_comp(queue* q, void* added,
                                int (*compare)(void* existing, void* added)) {
  if (q == nullptr || added == nullptr) return 1;  // it always succeeds
  if (q->head == nullptr) {
    (void)enqueue_inline(q, added);
    return 1;
  }
  const auto goes_behind = [&](queue_element* existing) {
    const int order = compare(existing, added);
    return order == 0 || order == 1;
  };
  void* prev = q;
  while (NextOf(prev) != nullptr && goes_behind(NextOf(prev))) prev = NextOf(prev);
  queue_element* element = Element(added);
  if (NextOf(prev) == nullptr) q->tail = element;
  element->next = NextOf(prev);
  NextOf(prev) = element;
  ++q->depth;
  return 1;
}

void* dequeue(queue* q) { return dequeue_inline(q); }
void* m_dequeue(queue* q) { return dequeue_inline(q); }

std::uint32_t unqueue(queue* q, void* element) { return unqueue_inline(q, element); }
std::uint32_t m_unqueue(queue* q, void* element) { return unqueue_inline(q, element); }

void* remqueue(queue* q, void* removed, void* prev) {
  if (q == nullptr) return nullptr;
  if (q->head == removed && prev == nullptr) return dequeue_inline(q);
  if (prev == nullptr || removed == nullptr || NextOf(prev) != removed) {
    LogLinkError(__func__, "remqueue", removed, q);
    return nullptr;
  }
  TakeOutNext(q, prev);
  CountRemovalAndRepair(q, __func__, "remqueue");
  return removed;
}

std::uint32_t unqueuenext(queue* q, void* prev) {
  if (q == nullptr || prev == nullptr || NextOf(prev) == nullptr) return 1;
  TakeOutNext(q, prev);
  CountRemovalAndRepair(q, __func__, "unqueuenext");
  return 1;
}

int validqueue(queue* q, int verbose) {
  if (q == nullptr) return 0;
  const queue_element* at = nullptr;
  bool valid = q->depth >= 0 && (q->size <= 0 || q->depth <= q->size);
  if (valid) {
    std::int32_t left = q->depth;
    at = q->head;
    while (at != nullptr && --left >= 0) at = at->next;
    valid = left == 0;
  }
  if (!valid && verbose != 0) LogLinkError(__func__, "validqueue", at, q);
  return valid ? 1 : 0;
}

}  // extern "C"
