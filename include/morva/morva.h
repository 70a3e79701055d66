/**
 * @file
 * The whole C interface of the library. Start with ext.h (loading), inst.h
 * (the instance) and operations.h (what one does with it); host.h is the
 * embedded host, for programs that have no host of their own.
 */
#ifndef MORVA_MORVA_H
#define MORVA_MORVA_H

#include "morva/base.h"
#include "morva/bucket_array.h"
#include "morva/ext.h"
#include "morva/flags.h"
#include "morva/host_lock.h"
#include "morva/host_pool.h"
#include "morva/host_services.h"
#include "morva/inst.h"
#include "morva/operations.h"
#include "morva/order_list.h"
#include "morva/order_node.h"
#include "morva/parms.h"
#include "morva/port.h"
#include "morva/record_node.h"
#include "morva/record_packer.h"
#include "morva/status.h"
#include "morva/tree_container.h"
#include "morva/tree_holder.h"

#endif
