/*
 * An intrusive singly linked queue. Elements are records of the caller whose first field is the
 * link to the next one; the queue allocates and frees nothing and takes no lock.
 *
 * An element counts as unlinked when its link is null and it is not the tail. Because head is the
 * first word of the queue record, the record itself may stand in as the predecessor of the first
 * element. A link error leaves the queue untouched, logs ERROR and gives 0 or null; a null queue
 * or element gives 0 or null silently, except where a call says otherwise.
 *
 * The m_ forms do the same work as the plain ones and take no lock either.
 */
#ifndef VTAPI_QUEUE_H
#define VTAPI_QUEUE_H

#include "vtapi/base.h"

VT_BEGIN_DECLS

/* queue_element is what every element begins with. */
typedef struct queue_element {
  struct queue_element* next; /* the following element, or null */
} queue_element;

/* queue: 16 bytes (i386), 24 bytes (x86-64). Zero-filled, it is an empty queue without a bound. */
typedef struct queue {
  queue_element* head; /* first element, or null */
  queue_element* tail; /* last element, or null */
  int32_t depth;       /* number of elements */
  int32_t size;        /* bound that validqueue checks, never enforced; 0: none */
} queue;

/*
 * queue_init stores size and nothing else: the caller zeroes the record first. Returns 1, or 0 for
 * a null queue or a negative size.
 */
VT_API int queue_init(queue* q, int32_t size);

/* queryqueuedepth returns depth, 0 for a null queue. */
VT_API int32_t queryqueuedepth(queue* q);

/* queryqueuesize returns size, 0 for a null queue. */
VT_API int32_t queryqueuesize(queue* q);

/* peekqueuehead returns the first element without removing it, or null. */
VT_API void* peekqueuehead(queue* q);

/* peekqueuetail returns the last element without removing it, or null. */
VT_API void* peekqueuetail(queue* q);

/* checkqueue returns 1 when the element can be reached from the head, else 0. */
VT_API int checkqueue(queue* q, void* element);

/* enqueue appends an unlinked element. Returns 1, or 0 (ERROR "%s %p (%p)") if it is linked. */
VT_API uint32_t enqueue(queue* q, void* element);
VT_API uint32_t m_enqueue(queue* q, void* element);

/* requeue pushes an unlinked element at the head. Returns 1, or 0 as enqueue does. */
VT_API uint32_t requeue(queue* q, void* element);
VT_API uint32_t m_requeue(queue* q, void* element);

/*
 * insqueue inserts an unlinked element behind after, which is trusted to be in the queue; with a
 * null after it is requeue. Returns 1, or 0 (ERROR) if the element is linked.
 */
VT_API uint32_t insqueue(queue* q, void* element, void* after);

/*
 * queue_insert_comp inserts by order: it walks from the head while compare(existing, added) gives 0
 * or 1 and links the element there, so that elements which compare 0 keep their order of arrival.
 * It does not test whether the element is linked (on an empty queue, enqueue does). Returns 1.
 */
VT_API uint32_t queue_insert_comp(queue* q, void* element,
                                  int (*compare)(void* existing, void* added));

/* dequeue removes and returns the head, or returns null. */
VT_API void* dequeue(queue* q);
VT_API void* m_dequeue(queue* q);

/*
 * unqueue searches for the element and removes it. Returns 1, or 0 (ERROR) when it is not there.
 * Deliberate: unlike the other removals it reports a negative depth but leaves it negative.
 */
VT_API uint32_t unqueue(queue* q, void* element);
VT_API uint32_t m_unqueue(queue* q, void* element);

/*
 * remqueue removes an element whose predecessor is known (null for the head) and returns it, or
 * returns null (ERROR) when prev does not lead to it.
 */
VT_API void* remqueue(queue* q, void* element, void* prev);

/* unqueuenext removes the element behind prev, if there is one. Returns 1. */
VT_API uint32_t unqueuenext(queue* q, void* prev);

/*
 * validqueue returns 1 when depth is not negative, does not exceed a positive size and equals the
 * number of elements; else 0, with an ERROR line when verbose is not 0.
 */
VT_API int validqueue(queue* q, int verbose);

VT_END_DECLS

#endif /* VTAPI_QUEUE_H */
