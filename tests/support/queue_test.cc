#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <string>
#include <vector>

#include "vtapi.h"

#include "tests/harness/log_capture.h"

namespace {

using namespace vt::testing;

struct Element {
  queue_element link = {};
  char name = '?';
};

// Fixture is an empty queue and four unlinked elements.
class Queue : public ::testing::Test {
 protected:
  Queue() { queue_init(&q_, 0); }

  // Fill makes the queue hold the first count elements.
  void Fill(int count) {
    Element* const elements[] = {&a_, &b_, &c_, &d_};
    for (int i = 0; i < count; ++i) ASSERT_EQ(1u, enqueue(&q_, elements[i]));
  }

  // Order is the names from head to tail; what does not hold together is spelled out behind them.
  std::string Order() const {
    std::string names;
    const queue_element* last = nullptr;
    for (const queue_element* e = q_.head; e != nullptr && names.size() < 10; e = e->next) {
      names += reinterpret_cast<const Element*>(e)->name;
      last = e;
    }
    if (q_.tail != last) names += " wrong tail";
    if (q_.depth != static_cast<int>(names.size())) names += " depth " + std::to_string(q_.depth);
    return names;
  }

  // Line is an ERROR line about two pointers, or about the queue and a number.
  static LogLine Line(const std::string& start, const void* element, const void* q) {
    char text[100];
    std::snprintf(text, sizeof text, "%s %p (%p)", start.c_str(), element, q);
    return {kError, text};
  }
  LogLine DepthLine(const std::string& start, int depth) const {
    char text[100];
    std::snprintf(text, sizeof text, "%s %p (%d)", start.c_str(), static_cast<const void*>(&q_),
                  depth);
    return {kError, text};
  }

  void ExpectLog(const std::vector<LogLine>& lines) { EXPECT_EQ(lines, log_.Take()); }

  Element a_{{}, 'a'};
  Element b_{{}, 'b'};
  Element c_{{}, 'c'};
  Element d_{{}, 'd'};
  queue q_ = {};
  LogCapture log_;
};

int AlwaysBefore(void*, void*) { return -1; }
int AlwaysEqual(void*, void*) { return 0; }
int AlwaysTwo(void*, void*) { return 2; }
// ByName orders by name: 0 for equal, 1 when the existing element sorts before the added one.
int ByName(void* existing, void* added) {
  const char old_name = static_cast<Element*>(existing)->name;
  const char new_name = static_cast<Element*>(added)->name;
  return old_name == new_name ? 0 : old_name < new_name ? 1 : -1;
}

TEST_F(Queue, InitStoresTheSizeAndKeepsStaleLinks) {
  queue stale = {&a_.link, &b_.link, 7, 3};
  EXPECT_EQ(1, queue_init(&stale, 12));
  EXPECT_EQ(&a_.link, stale.head);
  EXPECT_EQ(&b_.link, stale.tail);
  EXPECT_EQ(7, stale.depth);
  EXPECT_EQ(12, stale.size);
}

TEST_F(Queue, InitRefusesNullAndNegativeSizes) {
  EXPECT_EQ(0, queue_init(nullptr, 0));
  q_.size = 5;
  EXPECT_EQ(0, queue_init(&q_, -1));
  EXPECT_EQ(0, queue_init(&q_, INT_MIN));
  EXPECT_EQ(5, q_.size);
}

TEST_F(Queue, GettersReadTheRecord) {
  Fill(3);
  q_.size = 9;
  EXPECT_EQ(3, queryqueuedepth(&q_));
  EXPECT_EQ(9, queryqueuesize(&q_));
  EXPECT_EQ(&a_, peekqueuehead(&q_));
  EXPECT_EQ(&c_, peekqueuetail(&q_));
  EXPECT_EQ("abc", Order());
}

TEST_F(Queue, CheckFindsWhatIsReachableFromTheHead) {
  Fill(3);
  EXPECT_EQ(1, checkqueue(&q_, &a_));
  EXPECT_EQ(1, checkqueue(&q_, &c_));
  EXPECT_EQ(0, checkqueue(&q_, &d_));
  EXPECT_EQ(0, checkqueue(nullptr, &a_));
}

TEST_F(Queue, SizeIsNeverEnforced) {
  q_.size = 1;
  Fill(3);
  EXPECT_EQ("abc", Order());
  ExpectLog({});
}

TEST_F(Queue, EnqueueAppends) {
  EXPECT_EQ(1u, enqueue(&q_, &a_));
  EXPECT_EQ("a", Order());
  EXPECT_EQ(1u, m_enqueue(&q_, &b_));
  EXPECT_EQ("ab", Order());
  ExpectLog({});
}

TEST_F(Queue, EnqueueOfTheTailFails) {
  Fill(2);
  for (const auto call : {&enqueue, &m_enqueue}) {
    EXPECT_EQ(0u, call(&q_, &b_));
    ExpectLog({Line("enqueue_inline: enqueue_inline", &b_, &q_)});
    EXPECT_EQ("ab", Order());
  }
}

TEST_F(Queue, EnqueueOfALinkedElementFails) {
  Fill(2);
  EXPECT_EQ(0u, enqueue(&q_, &a_));
  ExpectLog({Line("enqueue_inline: enqueue_inline", &a_, &q_)});
  EXPECT_EQ("ab", Order());
}

TEST_F(Queue, RequeuePushesAtTheHead) {
  EXPECT_EQ(1u, requeue(&q_, &a_));
  EXPECT_EQ("a", Order());
  EXPECT_EQ(1u, m_requeue(&q_, &b_));
  EXPECT_EQ("ba", Order());
  ExpectLog({});
}

TEST_F(Queue, RequeueOfALinkedElementOrTheTailFails) {
  Fill(2);
  for (const auto call : {&requeue, &m_requeue}) {
    EXPECT_EQ(0u, call(&q_, &a_));
    EXPECT_EQ(0u, call(&q_, &b_));
    ExpectLog(
        {Line("requeue_inline: requeue", &a_, &q_), Line("requeue_inline: requeue", &b_, &q_)});
    EXPECT_EQ("ab", Order());
  }
}

TEST_F(Queue, InsertBehindAnElement) {
  Fill(2);
  EXPECT_EQ(1u, insqueue(&q_, &c_, &a_));
  EXPECT_EQ("acb", Order());
}

TEST_F(Queue, InsertBehindTheTailMovesIt) {
  Fill(2);
  EXPECT_EQ(1u, insqueue(&q_, &c_, &b_));
  EXPECT_EQ("abc", Order());
}

TEST_F(Queue, InsertBehindNothingIsRequeue) {
  Fill(2);
  EXPECT_EQ(1u, insqueue(&q_, &c_, nullptr));
  EXPECT_EQ("cab", Order());
  EXPECT_EQ(0u, insqueue(&q_, &a_, nullptr));
  ExpectLog({Line("requeue_inline: requeue", &a_, &q_)});
}

TEST_F(Queue, InsertOfALinkedElementOrTheTailFails) {
  Fill(3);
  EXPECT_EQ(0u, insqueue(&q_, &b_, &a_));
  EXPECT_EQ(0u, insqueue(&q_, &c_, &a_));
  ExpectLog({Line("insqueue: insqueue", &b_, &q_), Line("insqueue: insqueue", &c_, &q_)});
  EXPECT_EQ("abc", Order());
}

TEST_F(Queue, OrderedInsertWithAlwaysEqualIsAStableAppend) {
  for (Element* e : {&b_, &a_, &c_}) EXPECT_EQ(1u, queue_insert_comp(&q_, e, &AlwaysEqual));
  EXPECT_EQ("bac", Order());
}

TEST_F(Queue, OrderedInsertWithAlwaysBeforeIsAPushAtTheHead) {
  for (Element* e : {&b_, &a_, &c_}) EXPECT_EQ(1u, queue_insert_comp(&q_, e, &AlwaysBefore));
  EXPECT_EQ("cab", Order());
}

TEST_F(Queue, OrderedInsertStopsAtAnyResultButZeroAndOne) {
  for (Element* e : {&b_, &a_, &c_}) EXPECT_EQ(1u, queue_insert_comp(&q_, e, &AlwaysTwo));
  EXPECT_EQ("cab", Order());
}

TEST_F(Queue, OrderedInsertFindsItsPlace) {
  for (Element* e : {&c_, &a_, &d_, &b_}) EXPECT_EQ(1u, queue_insert_comp(&q_, e, &ByName));
  EXPECT_EQ("abcd", Order());
  ExpectLog({});
}

TEST_F(Queue, OrderedInsertPutsEqualElementsBehindEachOther) {
  b_.name = 'a';
  Element upper{{}, 'A'};
  for (Element* e : {&a_, &c_, &b_, &upper}) queue_insert_comp(&q_, e, &ByName);
  EXPECT_EQ("Aaac", Order());
  EXPECT_EQ(&a_.link, upper.link.next);
  EXPECT_EQ(&b_.link, a_.link.next);
}

TEST_F(Queue, OrderedInsertReceivesTheExistingElementFirst) {
  static void* seen[2];
  enqueue(&q_, &a_);
  queue_insert_comp(&q_, &b_, [](void* existing, void* added) {
    seen[0] = existing;
    seen[1] = added;
    return 0;
  });
  EXPECT_EQ(&a_, seen[0]);
  EXPECT_EQ(&b_, seen[1]);
}

TEST_F(Queue, OrderedInsertIntoAnEmptyQueueRaisesTheDepthOnce) {
  EXPECT_EQ(1u, queue_insert_comp(&q_, &a_, &ByName));
  EXPECT_EQ(1, q_.depth);
  EXPECT_EQ("a", Order());
}

TEST_F(Queue, OrderedInsertReportsSuccessEvenWhereEnqueueRefused) {
  a_.link.next = &b_.link;
  EXPECT_EQ(1u, queue_insert_comp(&q_, &a_, &ByName));
  ExpectLog({Line("enqueue_inline: enqueue_inline", &a_, &q_)});
  EXPECT_EQ("", Order());
}

TEST_F(Queue, OrderedInsertDoesNotCheckTheLink) {
  Fill(1);
  c_.link.next = &d_.link;
  EXPECT_EQ(1u, queue_insert_comp(&q_, &c_, &ByName));
  EXPECT_EQ("ac", Order());
  ExpectLog({});
}

TEST_F(Queue, DequeueOfAnEmptyQueueIsNullAndSilent) {
  EXPECT_EQ(nullptr, dequeue(&q_));
  EXPECT_EQ(nullptr, m_dequeue(&q_));
  EXPECT_EQ("", Order());
  ExpectLog({});
}

TEST_F(Queue, DequeueRemovesTheHeadAndUnlinksIt) {
  Fill(3);
  EXPECT_EQ(&a_, dequeue(&q_));
  EXPECT_EQ(nullptr, a_.link.next);
  EXPECT_EQ("bc", Order());
  EXPECT_EQ(&b_, m_dequeue(&q_));
  EXPECT_EQ("c", Order());
  EXPECT_EQ(&c_, dequeue(&q_));
  EXPECT_EQ("", Order());
  ExpectLog({});
}

TEST_F(Queue, TailSurvivesADequeueThatLeavesElements) {
  Fill(3);
  EXPECT_EQ(&a_, dequeue(&q_));
  EXPECT_EQ(1u, enqueue(&q_, &d_));
  EXPECT_EQ("bcd", Order());
}

TEST_F(Queue, DequeueReportsATailThatIsNotTheLastElement) {
  Fill(1);
  q_.tail = &b_.link;
  EXPECT_EQ(&a_, dequeue(&q_));
  ExpectLog({Line("dequeue_inline: dequeue", &a_, &q_)});
  EXPECT_EQ("", Order());
}

TEST_F(Queue, UnqueueRemovesAtHeadMiddleAndTail) {
  Fill(4);
  EXPECT_EQ(1u, unqueue(&q_, &b_));
  EXPECT_EQ(nullptr, b_.link.next);
  EXPECT_EQ("acd", Order());
  EXPECT_EQ(1u, m_unqueue(&q_, &d_));
  EXPECT_EQ("ac", Order());
  EXPECT_EQ(1u, unqueue(&q_, &a_));
  EXPECT_EQ(nullptr, a_.link.next);
  EXPECT_EQ("c", Order());
  ExpectLog({});
}

TEST_F(Queue, UnqueueOfTheOnlyElementLeavesAllAtZero) {
  Fill(1);
  EXPECT_EQ(1u, unqueue(&q_, &a_));
  EXPECT_EQ(nullptr, q_.head);
  EXPECT_EQ(nullptr, q_.tail);
  EXPECT_EQ(0, q_.depth);
}

TEST_F(Queue, UnqueueOfAStrangerFails) {
  Fill(2);
  for (const auto call : {&unqueue, &m_unqueue}) {
    EXPECT_EQ(0u, call(&q_, &c_));
    ExpectLog({Line("unqueue_inline: unqueue", &c_, &q_)});
    EXPECT_EQ("ab", Order());
  }
}

TEST_F(Queue, RemoveBehindAKnownPredecessor) {
  Fill(3);
  EXPECT_EQ(&b_, remqueue(&q_, &b_, &a_));
  EXPECT_EQ(nullptr, b_.link.next);
  EXPECT_EQ("ac", Order());
  EXPECT_EQ(&c_, remqueue(&q_, &c_, &a_));
  EXPECT_EQ("a", Order());
  ExpectLog({});
}

TEST_F(Queue, RemoveOfTheHeadWithoutPredecessorIsDequeue) {
  Fill(2);
  EXPECT_EQ(&a_, remqueue(&q_, &a_, nullptr));
  EXPECT_EQ("b", Order());
  q_.size = 1;
  q_.depth = 0;
  EXPECT_EQ(&b_, remqueue(&q_, &b_, nullptr));
  ExpectLog({DepthLine("dequeue_inline: dequeue", -1)});
}

TEST_F(Queue, QueueRecordStandsInAsThePredecessorOfTheHead) {
  Fill(2);
  EXPECT_EQ(&a_, remqueue(&q_, &a_, &q_));
  EXPECT_EQ("b", Order());
  EXPECT_EQ(&b_, remqueue(&q_, &b_, &q_));
  EXPECT_EQ(nullptr, q_.tail);
  EXPECT_EQ(1u, enqueue(&q_, &c_));
  EXPECT_EQ("c", Order());
}

TEST_F(Queue, RemoveWithAWrongPredecessorFails) {
  Fill(3);
  EXPECT_EQ(nullptr, remqueue(&q_, &c_, &a_));
  EXPECT_EQ(nullptr, remqueue(&q_, &b_, nullptr));
  EXPECT_EQ(nullptr, remqueue(&q_, nullptr, &a_));
  ExpectLog({Line("remqueue: remqueue", &c_, &q_), Line("remqueue: remqueue", &b_, &q_),
             Line("remqueue: remqueue", nullptr, &q_)});
  EXPECT_EQ("abc", Order());
}

TEST_F(Queue, RemoveTheSuccessor) {
  Fill(3);
  EXPECT_EQ(1u, unqueuenext(&q_, &a_));
  EXPECT_EQ(nullptr, b_.link.next);
  EXPECT_EQ("ac", Order());
  EXPECT_EQ(1u, unqueuenext(&q_, &a_));
  EXPECT_EQ("a", Order());
  EXPECT_EQ(1u, unqueuenext(&q_, &a_));
  EXPECT_EQ("a", Order());
  EXPECT_EQ(1u, unqueuenext(&q_, &q_));
  EXPECT_EQ("", Order());
  EXPECT_EQ(1u, enqueue(&q_, &d_));
  EXPECT_EQ("d", Order());
  ExpectLog({});
}

TEST_F(Queue, DepthGoesNegativeSilentlyWithoutASize) {
  Fill(4);
  q_.depth = 0;
  EXPECT_EQ(&a_, dequeue(&q_));
  EXPECT_EQ(-1, q_.depth);
  EXPECT_EQ(1u, unqueue(&q_, &c_));
  EXPECT_EQ(-2, q_.depth);
  EXPECT_EQ(&d_, remqueue(&q_, &d_, &b_));
  EXPECT_EQ(-3, q_.depth);
  EXPECT_EQ(1u, unqueuenext(&q_, &q_));
  EXPECT_EQ(-4, q_.depth);
  ExpectLog({});
}

TEST_F(Queue, NegativeDepthIsReportedAndRepairedWithASize) {
  Fill(4);
  q_.size = 10;
  q_.depth = 0;
  EXPECT_EQ(&a_, m_dequeue(&q_));
  EXPECT_EQ(0, q_.depth);
  EXPECT_EQ(&c_, remqueue(&q_, &c_, &b_));
  EXPECT_EQ(0, q_.depth);
  EXPECT_EQ(1u, unqueuenext(&q_, &b_));
  EXPECT_EQ(0, q_.depth);
  ExpectLog({DepthLine("dequeue_inline: dequeue", -1), DepthLine("remqueue: remqueue", -1),
             DepthLine("unqueuenext: unqueuenext", -1)});
}

// Deliberate: unlike the other removals, this one reports a negative count but does not repair it.
TEST_F(Queue, UnqueueReportsANegativeDepthButLeavesIt) {
  Fill(2);
  q_.size = 10;
  q_.depth = 0;
  EXPECT_EQ(1u, unqueue(&q_, &a_));
  EXPECT_EQ(-1, q_.depth);
  ExpectLog({DepthLine("unqueue_inline: unqueue", -1)});
}

TEST_F(Queue, ValidQueueHasAsManyElementsAsItsDepthSays) {
  EXPECT_EQ(1, validqueue(&q_, 1));
  Fill(3);
  EXPECT_EQ(1, validqueue(&q_, 1));
  q_.size = 3;
  EXPECT_EQ(1, validqueue(&q_, 1));
  ExpectLog({});
}

TEST_F(Queue, MoreElementsThanDepthAreInvalidAndTheFirstTooManyIsLogged) {
  Fill(3);
  q_.depth = 2;
  EXPECT_EQ(0, validqueue(&q_, 0));
  ExpectLog({});
  EXPECT_EQ(0, validqueue(&q_, 1));
  ExpectLog({Line("validqueue: validqueue", &c_, &q_)});
}

TEST_F(Queue, FewerElementsThanDepthAreInvalid) {
  Fill(3);
  q_.depth = 4;
  EXPECT_EQ(0, validqueue(&q_, -1));
  ExpectLog({Line("validqueue: validqueue", nullptr, &q_)});
}

TEST_F(Queue, NegativeDepthIsInvalidBeforeAnyWalk) {
  Fill(3);
  q_.depth = -1;
  EXPECT_EQ(0, validqueue(&q_, 1));
  ExpectLog({Line("validqueue: validqueue", nullptr, &q_)});
}

TEST_F(Queue, DepthAboveAPositiveSizeIsInvalid) {
  Fill(3);
  q_.size = 2;
  EXPECT_EQ(0, validqueue(&q_, 1));
  ExpectLog({Line("validqueue: validqueue", nullptr, &q_)});
}

TEST_F(Queue, UnqueueOfNullIsNotFound) {
  Fill(1);
  EXPECT_EQ(0u, unqueue(&q_, nullptr));
  EXPECT_EQ(0u, m_unqueue(&q_, nullptr));
  ExpectLog({Line("unqueue_inline: unqueue", nullptr, &q_),
             Line("unqueue_inline: unqueue", nullptr, &q_)});
  EXPECT_EQ("a", Order());
  EXPECT_EQ(0u, unqueue(nullptr, &a_));
}

TEST_F(Queue, OtherNullArgumentsAreSilent) {
  Fill(1);
  EXPECT_EQ(0u, enqueue(nullptr, &b_));
  EXPECT_EQ(0u, enqueue(&q_, nullptr));
  EXPECT_EQ(0u, m_enqueue(nullptr, nullptr));
  EXPECT_EQ(0u, requeue(nullptr, &b_));
  EXPECT_EQ(0u, requeue(&q_, nullptr));
  EXPECT_EQ(0u, m_requeue(nullptr, nullptr));
  EXPECT_EQ(0u, insqueue(nullptr, &b_, &a_));
  EXPECT_EQ(0u, insqueue(&q_, nullptr, &a_));
  EXPECT_EQ(0u, insqueue(&q_, nullptr, nullptr));
  EXPECT_EQ(0u, insqueue(nullptr, &b_, nullptr));
  EXPECT_EQ(nullptr, dequeue(nullptr));
  EXPECT_EQ(nullptr, m_dequeue(nullptr));
  EXPECT_EQ(nullptr, remqueue(nullptr, &a_, nullptr));
  EXPECT_EQ(1u, unqueuenext(&q_, nullptr));
  EXPECT_EQ(1u, unqueuenext(nullptr, &a_));
  EXPECT_EQ(1u, queue_insert_comp(nullptr, &b_, AlwaysEqual));
  EXPECT_EQ(1u, queue_insert_comp(&q_, nullptr, AlwaysEqual));
  EXPECT_EQ(0, checkqueue(&q_, nullptr));
  EXPECT_EQ(0, validqueue(nullptr, 1));
  EXPECT_EQ(0, queryqueuedepth(nullptr));
  EXPECT_EQ(0, queryqueuesize(nullptr));
  EXPECT_EQ(nullptr, peekqueuehead(nullptr));
  EXPECT_EQ(nullptr, peekqueuetail(nullptr));
  ExpectLog({});
  EXPECT_EQ("a", Order());
  EXPECT_EQ(nullptr, b_.link.next);
}

TEST_F(Queue, ASilencedLogChangesNoRefusalAndNoRepair) {
  setLogLevel(kSilent);
  Fill(1);
  EXPECT_EQ(0u, enqueue(&q_, &a_));
  q_ = {&a_.link, &a_.link, 0, 5};
  EXPECT_EQ(&a_, dequeue(&q_));
  EXPECT_EQ(0, q_.depth);
  ExpectLog({});
}

// Callers were compiled against prototypes that return an int or a single byte: the result has to
// read the same through each.
template <class Result>
Result CallAs(std::uint32_t (*function)(queue*, void*), queue* q, void* element) {
  return reinterpret_cast<Result (*)(queue*, void*)>(reinterpret_cast<void*>(function))(q, element);
}

TEST_F(Queue, ResultsReadTheSameThroughIntAndBytePrototypes) {
  EXPECT_EQ(1, CallAs<int>(&enqueue, &q_, &a_));
  EXPECT_EQ(0, CallAs<int>(&enqueue, &q_, &a_));
  EXPECT_EQ(1, CallAs<unsigned char>(&enqueue, &q_, &b_));
  EXPECT_EQ(0, CallAs<unsigned char>(&enqueue, &q_, &b_));
  EXPECT_EQ(1, CallAs<int>(&requeue, &q_, &c_));
  EXPECT_EQ(0, CallAs<int>(&requeue, &q_, &c_));
  EXPECT_EQ(1, CallAs<unsigned char>(&requeue, &q_, &d_));
  EXPECT_EQ(0, CallAs<unsigned char>(&requeue, &q_, &d_));
  EXPECT_EQ("dcab", Order());
  EXPECT_EQ(1, CallAs<int>(&unqueue, &q_, &a_));
  EXPECT_EQ(0, CallAs<int>(&unqueue, &q_, &a_));
  EXPECT_EQ(1, CallAs<unsigned char>(&unqueue, &q_, &b_));
  EXPECT_EQ(0, CallAs<unsigned char>(&unqueue, &q_, &b_));
  EXPECT_EQ(1, CallAs<int>(&m_enqueue, &q_, &a_));
  EXPECT_EQ(0, CallAs<int>(&m_enqueue, &q_, &a_));
}

}  // namespace
