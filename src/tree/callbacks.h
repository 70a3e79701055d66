// The four tree callbacks; aa_tree exports them and their locked twins.
#pragma once

#include "morva/tree_holder.h"

namespace morva::core {

RecordNode *aa_tree_adder(TreeHolder *holder, RecordNode *node);
RecordNode *aa_tree_finder(TreeHolder *holder, RecordNode *probe);
RecordNode *aa_tree_fuzzier(TreeHolder *holder, RecordNode *probe, RecordNode **prev,
                            RecordNode **next);
RecordNode *aa_tree_killer(TreeHolder *holder, RecordNode *probe);

}  // namespace morva::core
