/* The host of c_host.c as a library that `morva check-host` can try; docs/hosting.md says how. */
#define main hostProgram /* which is of no use in a library */
#include "c_host.c"
#undef main

#include "morva/check_host.h"

static HostServices *create(const MORVAHostRequest *request, void **host) {
  if (request->memoryLimit != 0 || request->lockedTrees != 0) return NULL; /* it has neither */
  *host = &services;
  return &services;
}
static uint32_t destroy(void *host) { /* blocks are counted, too: no harm in that */
  return (uint32_t)atomic_exchange(&alive, 0);
}
static OrderNode *orderFirst(OrderList *list) {
  return list->head;
}
static OrderNode *orderNext(OrderNode *node) {
  return node->link1;
}

/* Keys as the program has them: number and plant of an item. */
static const MORVAKeyDesc itemFields[] = {
    {sizeof(uint32_t), 4, offsetof(Item, number), 0},
    {sizeof(uint16_t), 4, offsetof(Item, plant), 0},
};
static const MORVAKeyDesc aFloat = {8, 1, 0, 0}; /* the packer takes raw bytes only */

static const void *makeItem(uint64_t number, void *room) {
  Item *item = room;
  item->number = (uint32_t)number;
  item->plant = (uint16_t)(number % 7);
  return item;
}
static const MORVAHostKey items = {.fields = itemFields,
                                   .fieldCount = 2,
                                   .roomSize = sizeof(Item),
                                   .make = makeItem,
                                   .refused = &aFloat};

const MORVAHostCheck MORVAHostForCheck = {.version = MORVA_HOST_CHECK_VERSION,
                                          .create = create,
                                          .destroy = destroy,
                                          .orderFirst = orderFirst,
                                          .orderNext = orderNext,
                                          .keys = &items,
                                          .keyCount = 1};
