// A program on a host of its own: linked with the library loaded at run time or
// not at all, and without the embedded host.
#include "morva/morva.hpp"
#include "morva/throws.hpp"

int main(int argc, char **argv) {
  const auto refused = morva::host::of(nullptr);
  if (refused || refused.error() != morva::errc::refused) return 1;
  HostServices services{};
  const auto host = morva::host::of(&services);
  if (!host || host->native() != nullptr || host->stats()) return 2;
  // A host that has nothing gets as far as being asked for a pool.
  services.createPool = [](HostServices *, const PoolOptions *, void *,
                           const char *) -> HostPool * { return nullptr; };
  const auto library = morva::extension::load(*host, argc > 1 ? argv[1] : "libmorva.so.1");
  if (library || library.error().code != morva::errc::no_memory) return 3;
  return 0;
}
