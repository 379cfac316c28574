// Platform: the bundle of facilities the library runs on. A host installs one
// before the library's first use (or leaves the Linux default, made on first use);
// tests install the testing bundle. Every member must be set.
#pragma once

#include <bvgeo/platform/Application.hpp>
#include <bvgeo/platform/Clock.hpp>
#include <bvgeo/platform/Console.hpp>
#include <bvgeo/platform/DateFormatter.hpp>
#include <bvgeo/platform/Device.hpp>
#include <bvgeo/platform/DispatchQueue.hpp>
#include <bvgeo/Export.hpp>
#include <bvgeo/platform/FileSystem.hpp>
#include <bvgeo/platform/LocationService.hpp>
#include <bvgeo/platform/MainQueue.hpp>
#include <bvgeo/platform/Reachability.hpp>
#include <bvgeo/platform/SettingsStore.hpp>
#include <bvgeo/platform/Uuid.hpp>

#include <memory>

namespace bvgeo {

struct BVGEO_API Platform {
    std::shared_ptr<Clock> clock;
    std::shared_ptr<MainQueue> mainQueue;
    std::shared_ptr<DispatchQueueFactory> dispatchQueues;
    std::shared_ptr<SettingsStore> settings;
    std::shared_ptr<FileSystem> files;
    std::shared_ptr<UuidGenerator> uuids;
    std::shared_ptr<Console> console;
    std::shared_ptr<DateFormatter> dateFormatter;
    std::shared_ptr<Application> application;
    std::shared_ptr<Device> device;
    std::shared_ptr<LocationService> locationService;
    std::shared_ptr<Reachability> reachability;
};

// Installs `bundle` as the platform. Call before the library's first use, or (in
// tests) while no library work is running. Returns false, changing nothing, when a
// member is missing.
BVGEO_API bool installPlatform(Platform bundle);

// The installed platform; installs the Linux default on first use when none was.
BVGEO_API const Platform& platform();

} // namespace bvgeo
