/*
 * A fleet under an epoll loop of one's own: many queries at once in one thread, each finished as
 * soon as its node has answered. Here the queries ask one node for devices of different roles; they
 * may as well go to ten thousand nodes.
 *
 *   epoll_fleet HOST PORT [KEYFILE]      (of the key file, the first 20 bytes are the key)
 */
#include <stdio.h>
#include <stdlib.h>
#include <sys/epoll.h>
#include <unistd.h>
#include <vtapi.h>

/* A job is a query with what we want to remember of it. The query has to outlive its result. */
struct job {
  const char* role;
  Query* query;
};

static void finish(ReplyCollection* collection, struct job* job) {
  const int32_t outcome = voltaris_getCollectionOutcome(collection);
  ResultSet* result = voltaris_takeCollectionResult(collection);
  printf("%s: %d rows, %s\n", job->role, voltaris_getRowCount(result),
         voltaris_nameOutcome(outcome));
  voltaris_releaseResult(result);
  voltaris_releaseCollection(collection);
  voltaris_releaseQuery(job->query);
}

int main(int argc, char** argv) {
  if (argc < 3 || argc > 4) {
    fprintf(stderr, "usage: epoll_fleet HOST PORT [KEYFILE]\n");
    return 2;
  }
  unsigned char key[20];
  FILE* file = argc > 3 ? fopen(argv[3], "rb") : NULL;
  if (argc > 3 && (file == NULL || fread(key, 1, sizeof key, file) != sizeof key)) {
    fprintf(stderr, "epoll_fleet: there is no key in %s\n", argv[3]);
    return 2;
  }
  if (file != NULL) fclose(file);

  struct job jobs[] = {{"lamp", NULL}, {"phone", NULL}, {"switch", NULL}, {"no-such-role", NULL}};
  const size_t count = sizeof jobs / sizeof jobs[0];
  CollectionFleet* fleet = voltaris_createFleet(2); /* so many at a time; the others wait */
  Session* session = voltaris_createSession(argv[1], (uint32_t)strtoul(argv[2], NULL, 10),
                                            "0123456789abcdef0123456789abcdef0000",
                                            argc > 3 ? key : NULL, argc > 3 ? 20 : 0);
  if (fleet == NULL || session == NULL) return 1; /* the log has said why */
  const CollectionOptions options = {5000, 5000, 10000};
  for (size_t i = 0; i < count; ++i) {
    jobs[i].query = voltaris_createCollectQuery("office", 100);
    if (jobs[i].query == NULL) return 1;
    voltaris_addGetAttribute(jobs[i].query, VT_ATTRIBUTE_NAME);
    voltaris_addRoleQualifier(jobs[i].query, jobs[i].role);
    /* The last argument comes back with the collection when it has ended. */
    if (voltaris_addToFleet(fleet, session, jobs[i].query, &options, &jobs[i]) == NULL) return 1;
  }
  voltaris_closeSession(session); /* nothing in the fleet needs it */

  /* The fleet is one descriptor in the application's own epoll, from its beginning to its end. */
  const int loop = epoll_create1(EPOLL_CLOEXEC);
  struct epoll_event watched = {.events = EPOLLIN};
  if (loop < 0 || epoll_ctl(loop, EPOLL_CTL_ADD, voltaris_getFleetDescriptor(fleet), &watched)) {
    return 1;
  }
  int32_t goes_on = 1;
  while (goes_on) {
    struct epoll_event event;
    (void)epoll_wait(loop, &event, 1, voltaris_getFleetTimeout(fleet));
    goes_on = voltaris_stepFleet(fleet);
    void* tag = NULL;
    ReplyCollection* ended = NULL;
    while ((ended = voltaris_takeEnded(fleet, &tag)) != NULL) finish(ended, tag);
  }
  close(loop);
  voltaris_releaseFleet(fleet);
  return 0;
}
