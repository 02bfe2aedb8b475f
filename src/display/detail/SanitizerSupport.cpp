// Only in builds with AddressSanitizer (ORLAVEX_ASAN_BUILD): keeps Mesa's
// software GL driver loaded until the process ends. The driver is unloaded
// when the X display closes, and a block it still references then looks
// leaked to LeakSanitizer, which can no longer even name the module. Pinned,
// its memory stays reachable and any real leak in it is reported by name
// (and suppressed in tests/lsan.supp only as the driver's own).
#ifdef ORLAVEX_ASAN_BUILD
#include <dlfcn.h>

namespace {
__attribute__((constructor)) void pinGlDriver() {
    dlopen("/usr/lib/x86_64-linux-gnu/dri/swrast_dri.so", RTLD_NOW | RTLD_NODELETE);
}
} // namespace
#endif
