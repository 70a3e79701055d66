/**
 * @file
 * A host for tables: the embedded one, or any service table.
 */
#ifndef MORVA_HOST_HPP
#define MORVA_HOST_HPP

#include <new>
#include <utility>

#include "morva/host.h"
#include "morva/host_services.h"
#include "morva/result.hpp"
#include "morva/shared.hpp"

namespace morva {

/** How an embedded host behaves; QZHostOptions says more. */
struct host_options {
  /** The most bytes its pools take from the system together; 0 for no limit. */
  std::uint64_t memory_limit = 0;
  /** Ask for huge pages under large blocks. */
  bool huge_pages = true;
  /** Lock the bucket trees too, so that readers may search beside one writer. */
  bool locked_trees = false;
};

/** How to walk the order list of a host that is not the embedded one. */
struct order_walk {
  /** The first node of an instance's insertion order, or null. */
  OrderNode *(*first)(const MORVAInst *inst) = nullptr;
  /** The node after `node`, or null. */
  OrderNode *(*next)(const OrderNode *node) = nullptr;
};

class extension;

namespace detail {

struct host_state : counted {
  HostServices *services = nullptr;
  order_walk walk;
  // Whether the trees of buckets are kept as morva/search.hpp walks them, and
  // need no lock of their own for it. Other hosts are asked by their container.
  bool plain_trees = false;
  // The embedded host and what is asked of it; null for any other, so that a
  // program on a host of its own need not link libqzhost.
  QZHost *embedded = nullptr;
  decltype(&QZHostDestroy) destroy = nullptr;
  decltype(&QZHostGetStats) stats = nullptr;
  decltype(&QZHostLoad) load = nullptr;
  decltype(&QZHostAttach) attach = nullptr;
  decltype(&QZHostUnload) unload = nullptr;

  ~host_state() {
    if (embedded != nullptr) destroy(embedded, nullptr);
  }
};

}  // namespace detail

/**
 * A host. What stands on it keeps it alive: the embedded host is destroyed with
 * the last extension and table that use it, or with this object if that goes
 * later. Moved, never copied. Any number of threads may use one host.
 */
class host {
 public:
  /** Makes an embedded host (link libqzhost). Fails with no_memory. */
  static result<host> embedded(const host_options &options = {}) {
    detail::shared<detail::host_state> state(new (std::nothrow) detail::host_state);
    if (!state) return errc::no_memory;
    const QZHostOptions wanted{options.memory_limit, options.huge_pages, options.locked_trees};
    state->embedded = QZHostCreate(&wanted);
    if (state->embedded == nullptr) return errc::no_memory;
    state->destroy = &QZHostDestroy;
    state->stats = &QZHostGetStats;
    state->load = &QZHostLoad;
    state->attach = &QZHostAttach;
    state->unload = &QZHostUnload;
    state->services = QZHostServices(state->embedded);
    state->walk = {&QZOrderFirst, &QZOrderNext};
    state->plain_trees = !options.locked_trees;
    return host(std::move(state));
  }

  /**
   * A host of your own. `services` stays yours and must outlive what stands on
   * it. Ordered tables can be made when `walk` is given. Its locks must let a
   * thread acquire again what it holds; composed keys expect a record packer that
   * reads rows as the embedded one does (morva/host.h). Fails with refused for
   * a null table, and for half a walk.
   */
  static result<host> of(HostServices *services, order_walk walk = {}) {
    if (services == nullptr) return errc::refused;
    if ((walk.first == nullptr) != (walk.next == nullptr)) return errc::refused;
    detail::shared<detail::host_state> state(new (std::nothrow) detail::host_state);
    if (!state) return errc::no_memory;
    state->services = services;
    state->walk = walk;
    return host(std::move(state));
  }

  host(host &&) noexcept = default;
  host &operator=(host &&) noexcept = default;
  host(const host &) = delete;
  host &operator=(const host &) = delete;

  /** The service table; null after a move. */
  HostServices *services() const noexcept { return state_ ? state_->services : nullptr; }
  /** The embedded host, for the functions of morva/host.h; null for any other. */
  QZHost *native() const noexcept { return state_ ? state_->embedded : nullptr; }

  /** What an embedded host holds now. Fails with unsupported on any other. */
  result<QZHostStats> stats() const {
    if (native() == nullptr) return errc::unsupported;
    QZHostStats stats;
    state_->stats(native(), &stats);
    return stats;
  }

 private:
  friend class extension;
  explicit host(detail::shared<detail::host_state> state) noexcept : state_(std::move(state)) {}

  detail::shared<detail::host_state> state_;
};

}  // namespace morva

#endif
