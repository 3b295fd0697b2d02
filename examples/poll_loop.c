/*
 * One query in a poll loop: collects name, usage and level of the consumers in the domain "office"
 * and prints them. No call waits but poll, so that the loop could watch anything else besides.
 *
 *   poll_loop HOST PORT [KEYFILE]      (of the key file, the first 20 bytes are the key)
 */
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vtapi.h>

/* A text or a number is read where it lies: lengths are checked, and nothing need be aligned. */
static void print_row(const ResultCursor* row) {
  uint32_t length = 0;
  const char* name = voltaris_readValue(row, VT_ATTRIBUTE_NAME, 0, &length);
  printf("%.32s %u %.*s", (const char*)row->identity.device_id, row->identity.entity_index,
         name != NULL ? (int)length : 1, name != NULL ? name : "-");
  const void* usage = voltaris_readValue(row, VT_ATTRIBUTE_USAGE, 0, &length);
  uint16_t raw = 0;
  if (usage != NULL && length == sizeof raw) {
    memcpy(&raw, usage, sizeof raw);
    /* Usage is in units of ten to the power of the units column that comes with it. */
    const int8_t* units = voltaris_readValue(row, VT_ATTRIBUTE_UNITS, 0, &length);
    printf(" %ue%d W", (unsigned)raw, units != NULL ? *units : 0);
  }
  const uint8_t* level = voltaris_readValue(row, VT_ATTRIBUTE_LEVEL, 0, &length);
  if (level != NULL) printf(" level %u", (unsigned)*level);
  printf("\n");
}

int main(int argc, char** argv) {
  if (argc < 3 || argc > 4) {
    fprintf(stderr, "usage: poll_loop HOST PORT [KEYFILE]\n");
    return 2;
  }
  unsigned char key[20];
  FILE* file = argc > 3 ? fopen(argv[3], "rb") : NULL;
  if (argc > 3 && (file == NULL || fread(key, 1, sizeof key, file) != sizeof key)) {
    fprintf(stderr, "poll_loop: there is no key in %s\n", argv[3]);
    return 2;
  }
  if (file != NULL) fclose(file);

  /* An identity has 36 characters. Without a key its first 32 sign the messages. */
  Session* session = voltaris_createSession(argv[1], (uint32_t)strtoul(argv[2], NULL, 10),
                                            "0123456789abcdef0123456789abcdef0000",
                                            argc > 3 ? key : NULL, argc > 3 ? 20 : 0);
  Query* query = voltaris_createCollectQuery("office", 100);
  if (session == NULL || query == NULL) return 1; /* the log has said why */
  voltaris_addGetAttribute(query, VT_ATTRIBUTE_NAME);
  voltaris_addGetAttribute(query, VT_ATTRIBUTE_USAGE);
  voltaris_addGetAttribute(query, VT_ATTRIBUTE_LEVEL);

  /* The defaults limit connecting and silence; the total limit is this program's own. */
  CollectionOptions options = {0, 0, 10000};
  ReplyCollection* collection = voltaris_startCollection(session, query, &options);
  if (collection == NULL) return 1;
  voltaris_closeSession(session); /* not needed any more once the collection has begun */
  while (voltaris_stepCollection(collection) == VT_COLLECTION_PENDING) {
    struct pollfd watched = {voltaris_getCollectionDescriptor(collection),
                             voltaris_getCollectionEvents(collection), 0};
    poll(&watched, 1, voltaris_getCollectionTimeout(collection));
  }

  /* However it ended, what came until then is there. */
  const int32_t outcome = voltaris_getCollectionOutcome(collection);
  ResultSet* result = voltaris_takeCollectionResult(collection);
  ResultCursor row;
  voltaris_startCursor(&row, result);
  while (voltaris_advanceCursor(&row)) print_row(&row);
  printf("%d rows, %s\n", voltaris_getRowCount(result), voltaris_nameOutcome(outcome));

  /* In this order: the result reads the query while it is released. */
  voltaris_releaseResult(result);
  voltaris_releaseCollection(collection);
  voltaris_releaseQuery(query);
  return outcome == VT_COLLECTION_COMPLETE ? 0 : 1;
}
