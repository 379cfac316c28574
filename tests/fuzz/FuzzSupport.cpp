#include "FuzzSupport.hpp"

#include "datastore/BV1Database.hpp"
#include "platform/SharedInstance.hpp"

#include <cstdlib>
#include <filesystem>

namespace bvgeo::fuzz {

testing::TestPlatform& quietLibrary() {
    static testing::TestPlatform* sim;
    static bool made = [] {
        sim = new testing::TestPlatform();
        resetAllSharedInstances();
        Platform bundle = sim->bundle();
        bundle.console = std::make_shared<QuietConsole>();
        installPlatform(bundle);
        BV1Database::setRowLimit("log", 1000);
        // The library's instances outlive static teardown by design, so only the
        // documents directory goes at exit (the bundle with it, unreset).
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(sim->documentsDirectory(), ignored);
        });
        return true;
    }();
    (void)made;
    return *sim;
}

} // namespace bvgeo::fuzz
