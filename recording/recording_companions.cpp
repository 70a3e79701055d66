// The companions of the recording host and the objects they make.
#include "recording_state.h"

namespace morva::recording {
namespace {

constexpr uint32_t kNoise = 0xDEAD;

// Ends a companion; the objects it made must have ended before.
template <typename Companion>
void releaseCompanion(Companion &companion, const char *name) {
  State &host = *companion.host;
  host.end(companion, name);
  if (companion.objects != 0) {
    host.complain(std::string("released ") + name + " while objects it made are alive");
  }
  host.record({Call::releaseCompanion, companion.number, name});
}

template <typename Object>
void endObject(Object &object, const char *what, Call call) {
  State &host = *object.host;
  if (host.end(object, what)) {
    std::lock_guard<std::recursive_mutex> guard(host.mutex);
    --object.maker->objects;
  }
  host.record({call, object.number, ""});
}

// ---- record packer ----------------------------------------------------------

void destroyPacker(RecordPacker *object) {
  endObject(static_cast<Packer &>(*object), "packer", Call::destroyPacker);
}

uint32_t pack(RecordPacker *object, const void *hostKey, void *destination, uint64_t one) {
  Packer &packer = static_cast<Packer &>(*object);
  State &host = *packer.host;
  host.expectAlive(packer, "packer");
  if (!packer.finished) host.complain("packed a key before the definition was finished");
  if (one != 1) host.complain("packed with a last argument other than 1");
  char *record = static_cast<char *>(destination);
  for (const PackerField &field : packer.fields) {
    char *place = record + field.fieldOffset;
    if (hostKey == nullptr) {
      std::memset(place, 0, field.fieldLength);
    } else {
      std::memcpy(place, static_cast<const char *>(hostKey) + field.fieldArg, field.fieldLength);
    }
  }
  host.record({Call::pack, packer.number, "", word(hostKey), word(destination), one});
  return kNoise;
}

uint32_t defineField(RecordPacker *object, const PackerField *field) {
  Packer &packer = static_cast<Packer &>(*object);
  State &host = *packer.host;
  host.expectAlive(packer, "packer");
  const uint32_t answer = host.fails(Call::defineField) ? 1 : 0;
  {
    std::lock_guard<std::recursive_mutex> guard(host.mutex);
    host.owner.fields.push_back(*field);
    if (answer == 0) packer.fields.push_back(*field);
  }
  host.record({Call::defineField, packer.number, "", answer});
  return answer;
}

uint32_t finish(RecordPacker *object, const PackerClosing *closing) {
  Packer &packer = static_cast<Packer &>(*object);
  State &host = *packer.host;
  host.expectAlive(packer, "packer");
  const uint32_t answer = host.fails(Call::finish) ? 1 : 0;
  {
    std::lock_guard<std::recursive_mutex> guard(host.mutex);
    host.owner.closings.push_back(*closing);
    host.owner.closingNames.emplace_back(closing->name == nullptr ? "" : closing->name);
    if (answer == 0) packer.finished = true;
  }
  host.record({Call::finish, packer.number, "", answer});
  return answer;
}

RecordPacker *makePacker(RecordPackerExt *companion, uint64_t zero) {
  PackerExt &maker = static_cast<PackerExt &>(*companion);
  State &host = *maker.host;
  host.expectAlive(maker, "qzevp");
  Packer *packer = nullptr;
  if (!host.fails(Call::makePacker)) {
    std::lock_guard<std::recursive_mutex> guard(host.mutex);
    packer = addObject(&host, &host.packers);
    fillWithTraps<RecordPacker>(packer);
    packer->destroy = destroyPacker;
    packer->pack = pack;
    packer->defineField = defineField;
    packer->finish = finish;
    packer->maker = &maker;
    ++maker.objects;
  }
  host.record({Call::makePacker, packer == nullptr ? 0 : packer->number, "", zero});
  return packer;
}

void releasePackerExt(RecordPackerExt *companion) {
  releaseCompanion(static_cast<PackerExt &>(*companion), "qzevp");
}

// ---- tree container ---------------------------------------------------------

RecordNode *nodeOf(uintptr_t link) {
  return reinterpret_cast<RecordNode *>(link & ~uintptr_t{LINK_HEAVY | LINK_THREAD});
}

RecordNode *leftmost(RecordNode *node) {
  while (node != nullptr && (node->left & LINK_THREAD) == 0 && nodeOf(node->left) != nullptr) {
    node = nodeOf(node->left);
  }
  return node;
}

void destroyTree(TreeContainer *object) {
  Container &tree = static_cast<Container &>(*object);
  if (tree.lock != nullptr) static_cast<Lock *>(tree.lock)->alive = false;
  endObject(tree, "tree", Call::destroyTree);
}

RecordNode *treeNext(RecordNode *node) {
  // The slot is given no container; the node's instance knows it.
  Container &tree = static_cast<Container &>(*static_cast<MORVAInst *>(node->owner)->tree);
  RecordNode *answer = nodeOf(node->right);
  if ((node->right & LINK_THREAD) == 0) answer = leftmost(answer);
  tree.host->record({Call::treeNext, tree.number, "", word(node), word(answer)});
  return answer;
}

RecordNode *treeInsert(TreeContainer *object, Bucket *bucket, RecordNode *node,
                       BucketArray *buckets) {
  Container &tree = static_cast<Container &>(*object);
  tree.host->expectAlive(tree, "tree");
  TreeHolder holder = {bucket->root, 0, 0, tree.lock};
  RecordNode *answer = tree.lock == nullptr ? tree.callbacks->adder(&holder, node)
                                            : tree.callbacks->safe_adder(&holder, node);
  bucket->root = holder.root;
  tree.head = &tree;
  tree.host->record(
      {Call::treeInsert, tree.number, "", word(node), word(answer), word(bucket), word(buckets)});
  return answer;
}

RecordNode *treeFind(TreeContainer *object, Bucket *bucket, RecordNode *probe) {
  Container &tree = static_cast<Container &>(*object);
  tree.host->expectAlive(tree, "tree");
  TreeHolder holder = {bucket->root, 0, 0, tree.lock};
  RecordNode *answer = tree.lock == nullptr ? tree.callbacks->finder(&holder, probe)
                                            : tree.callbacks->safe_finder(&holder, probe);
  tree.host->record({Call::treeFind, tree.number, "", word(probe), word(answer), word(bucket)});
  return answer;
}

RecordNode *treeRemove(TreeContainer *object, Bucket *bucket, RecordNode *probe) {
  Container &tree = static_cast<Container &>(*object);
  tree.host->expectAlive(tree, "tree");
  TreeHolder holder = {bucket->root, 0, 0, tree.lock};
  RecordNode *answer = tree.lock == nullptr ? tree.callbacks->killer(&holder, probe)
                                            : tree.callbacks->safe_killer(&holder, probe);
  bucket->root = holder.root;
  tree.host->record({Call::treeRemove, tree.number, "", word(probe), word(answer), word(bucket)});
  return answer;
}

RecordNode *treeFirst(TreeContainer *object, Bucket *bucket) {
  Container &tree = static_cast<Container &>(*object);
  tree.host->expectAlive(tree, "tree");
  RecordNode *answer = leftmost(bucket->root);
  tree.host->record({Call::treeFirst, tree.number, "", 0, word(answer), word(bucket)});
  return answer;
}

TreeContainer *makeTree(TreeExt *companion, const TreeOptions *options, uint64_t zero1,
                        uint64_t zero2) {
  ContainerExt &maker = static_cast<ContainerExt &>(*companion);
  State &host = *maker.host;
  host.expectAlive(maker, "qzeavl");
  if (options->reserved0 != 0 || options->reserved24 != 0) {
    host.complain("tree options are not zero where they must be");
  }
  Container *tree = nullptr;
  if (!host.fails(Call::makeTree)) {
    std::lock_guard<std::recursive_mutex> guard(host.mutex);
    tree = addObject(&host, &host.containers);
    fillWithTraps<TreeContainer>(tree);
    tree->destroy = destroyTree;
    tree->next = treeNext;
    tree->insert = treeInsert;
    tree->find = treeFind;
    tree->remove = treeRemove;
    tree->first = treeFirst;
    tree->head = tree;
    tree->lock = host.options.treeLocks ? host.newLock("tree", false) : nullptr;
    tree->callbacks = options->callbacks;
    tree->maker = &maker;
    ++maker.objects;
  }
  host.record({Call::makeTree, tree == nullptr ? 0 : tree->number, "", options->word0,
               options->word1, word(options->callbacks), zero1 | zero2});
  return tree;
}

void releaseTreeExt(TreeExt *companion) {
  releaseCompanion(static_cast<ContainerExt &>(*companion), "qzeavl");
}

// ---- order list -------------------------------------------------------------

// The library empties a list by setting its head to 0.
void obeyHead(List *list) {
  if (list->head != nullptr) return;
  list->nodes.clear();
  list->byRecord.clear();
}

void showHead(List *list) {
  list->head = list->nodes.empty() ? nullptr : list->nodes.front();
}

void destroyOrderList(OrderList *object) {
  List &list = static_cast<List &>(*object);
  if (list.lock != nullptr) static_cast<Lock *>(list.lock)->alive = false;
  endObject(list, "order list", Call::destroyOrderList);
}

void append(OrderList *object, OrderNode *node) {
  List &list = static_cast<List &>(*object);
  State &host = *list.host;
  host.expectAlive(list, "order list");
  obeyHead(&list);
  if (list.byRecord.count(node->record) != 0) {
    host.complain("appended a record to the order a second time");
  } else {
    list.byRecord[node->record] = list.nodes.insert(list.nodes.end(), node);
  }
  // The first two words are the list's; nobody else may mind what is in them.
  node->link0 = &list;
  node->link1 = node;
  showHead(&list);
  host.record({Call::append, list.number, "", word(node), word(node->record)});
}

OrderNode *unlink(OrderList *object, const OrderNode *image) {
  List &list = static_cast<List &>(*object);
  State &host = *list.host;
  host.expectAlive(list, "order list");
  obeyHead(&list);
  OrderNode *answer = nullptr;
  const auto found = list.byRecord.find(image->record);
  if (found != list.byRecord.end()) {
    answer = *found->second;
    list.nodes.erase(found->second);
    list.byRecord.erase(found);
  }
  showHead(&list);
  host.record({Call::unlink, list.number, "", word(image->record), word(answer)});
  return answer;
}

OrderList *makeOrderList(OrderListExt *companion, TreeExt *treeExt) {
  ListExt &maker = static_cast<ListExt &>(*companion);
  State &host = *maker.host;
  host.expectAlive(maker, "qzeai");
  List *list = nullptr;
  if (!host.fails(Call::makeOrderList)) {
    std::lock_guard<std::recursive_mutex> guard(host.mutex);
    list = addObject(&host, &host.lists);
    fillWithTraps<OrderList>(list);
    list->destroy = destroyOrderList;
    list->head = nullptr;
    list->lock = host.options.orderListLock ? host.newLock("order", false) : nullptr;
    list->maker = &maker;
    ++maker.objects;
  }
  host.record({Call::makeOrderList, list == nullptr ? 0 : list->number, "", 0, 0, word(treeExt)});
  return list;
}

void releaseListExt(OrderListExt *companion) {
  releaseCompanion(static_cast<ListExt &>(*companion), "qzeai");
}

}  // namespace

void *State::newCompanion(const std::u32string &name) {
  std::lock_guard<std::recursive_mutex> guard(mutex);
  if (name == U"qzevp") {
    PackerExt *companion = addObject(this, &packerExts);
    fillWithTraps<RecordPackerExt>(companion);
    companion->release = releasePackerExt;
    companion->makePacker = makePacker;
    companion->number = ++companionsMade;
    return static_cast<RecordPackerExt *>(companion);
  }
  if (name == U"qzeavl") {
    ContainerExt *companion = addObject(this, &containerExts);
    fillWithTraps<TreeExt>(companion);
    companion->release = releaseTreeExt;
    companion->makeTree = makeTree;
    companion->number = ++companionsMade;
    return static_cast<TreeExt *>(companion);
  }
  if (name == U"qzeai") {
    ListExt *companion = addObject(this, &listExts);
    fillWithTraps<OrderListExt>(companion);
    companion->release = releaseListExt;
    companion->append = append;
    companion->unlink = unlink;
    companion->makeOrderList = makeOrderList;
    companion->number = ++companionsMade;
    return static_cast<OrderListExt *>(companion);
  }
  complain("asked for a companion that does not exist");
  return nullptr;
}

}  // namespace morva::recording
