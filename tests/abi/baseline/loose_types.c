/*
 * The public types that no exported function leads to: hosts meet them in
 * memory, or as numbers. One made-up function leads to them, so that they are
 * compared like the others.
 */
#include "morva/host.h"
#include "morva/morva.h"

MORVA_API void looseTypes(const KeyPrefix *prefix, const DupLinks *links, enum MORVAFlag flag,
                          enum MORVALinkTag tag);

void looseTypes(const KeyPrefix *prefix, const DupLinks *links, enum MORVAFlag flag,
                enum MORVALinkTag tag) {
  (void)prefix;
  (void)links;
  (void)flag;
  (void)tag;
}
