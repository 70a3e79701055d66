#include "instance/release.h"

namespace morva::core {

uint32_t Locked(const MORVAInst *inst, const RecordNode *node) {
  if (node == nullptr) return 0;
  for (const PinnedEntry *entry = inst->pinned; entry != nullptr; entry = entry->next) {
    if (entry->node == node) return 1;
  }
  return 0;
}

MORVAStatus RemoveOrderNode(MORVAInst *inst, RecordNode *node) {
  if (!has(*inst, flagOrdered)) return MORVA_OK;
  const OrderNode image{.link0 = nullptr, .link1 = nullptr, .record = node};
  OrderNode *unlinked = inst->aiExt->unlink(inst->orderList, &image);
  if (unlinked == nullptr) return MORVA_INVALID;
  releaseOrderNode(*inst, unlinked);
  return MORVA_OK;
}

void RemoveDups(MORVAInst *inst, RecordNode *node, uint32_t dataOffset) {
  auto *links = reinterpret_cast<DupLinks *>(baseOf(node) + dataOffset)->next;
  while (links != nullptr) {
    DupLinks *next = links->next;
    releaseRecordNode(*inst, nodeAtBase(reinterpret_cast<unsigned char *>(links) - dataOffset));
    relaxedAdd(inst->buckets->elementCount, ~uint32_t{0});
    links = next;
  }
}

}  // namespace morva::core
