// Forwarding wrappers, one per facility of the platform bundle: each hands every
// operation to the facility it wraps. A test derives from one and overrides the
// operation it wants to go wrong (a refused rename, a full disk, a network that is
// not there), then puts it in place of the facility it wraps with installWrapped():
// every other operation, and every other facility of the installed platform, stays
// what it was.
//
//     struct FullDisk final : ForwardingFileSystem {
//         using ForwardingFileSystem::ForwardingFileSystem;
//         FileResult writeFileAtomically(const std::string&, const std::string&) override {
//             return FileResult::failure("No space left on device");
//         }
//     };
//     auto disk = installWrapped<FullDisk>();
//
// Each wrapper names its member of the bundle as `kMember`. A wrapper is as
// thread-safe as the facility it wraps; what a test adds must be so too when the
// library calls it from its own threads.
#pragma once

#include <bvgeo/Export.hpp>
#include <bvgeo/platform/Platform.hpp>

#include <memory>
#include <utility>

namespace bvgeo::testing {

class BVGEO_API ForwardingClock : public Clock {
public:
    static constexpr auto kMember = &Platform::clock;
    explicit ForwardingClock(std::shared_ptr<Clock> wrapped) : wrapped_(std::move(wrapped)) {}

    double currentTime() const override { return wrapped_->currentTime(); }

    const std::shared_ptr<Clock>& wrapped() const { return wrapped_; }

private:
    std::shared_ptr<Clock> wrapped_;
};

class BVGEO_API ForwardingMainQueue : public MainQueue {
public:
    static constexpr auto kMember = &Platform::mainQueue;
    explicit ForwardingMainQueue(std::shared_ptr<MainQueue> wrapped) : wrapped_(std::move(wrapped)) {}

    void async(std::function<void()> work) override { wrapped_->async(std::move(work)); }
    TimerId scheduleTimer(double interval, double tolerance, std::function<void()> fire) override {
        return wrapped_->scheduleTimer(interval, tolerance, std::move(fire));
    }
    void cancelTimer(TimerId id) override { wrapped_->cancelTimer(id); }
    bool isCurrent() const override { return wrapped_->isCurrent(); }

    const std::shared_ptr<MainQueue>& wrapped() const { return wrapped_; }

private:
    std::shared_ptr<MainQueue> wrapped_;
};

class BVGEO_API ForwardingDispatchQueueFactory : public DispatchQueueFactory {
public:
    static constexpr auto kMember = &Platform::dispatchQueues;
    explicit ForwardingDispatchQueueFactory(std::shared_ptr<DispatchQueueFactory> wrapped)
        : wrapped_(std::move(wrapped)) {}

    std::shared_ptr<DispatchQueue> makeSerialQueue(std::string label) override {
        return wrapped_->makeSerialQueue(std::move(label));
    }

    const std::shared_ptr<DispatchQueueFactory>& wrapped() const { return wrapped_; }

private:
    std::shared_ptr<DispatchQueueFactory> wrapped_;
};

class BVGEO_API ForwardingSettingsStore : public SettingsStore {
public:
    static constexpr auto kMember = &Platform::settings;
    explicit ForwardingSettingsStore(std::shared_ptr<SettingsStore> wrapped) : wrapped_(std::move(wrapped)) {}

    std::optional<std::string> string(std::string_view key) const override { return wrapped_->string(key); }
    std::optional<std::int64_t> integer(std::string_view key) const override { return wrapped_->integer(key); }
    void setString(std::string_view key, std::string value) override { wrapped_->setString(key, std::move(value)); }
    void setInteger(std::string_view key, std::int64_t value) override { wrapped_->setInteger(key, value); }
    void remove(std::string_view key) override { wrapped_->remove(key); }
    bool synchronize() override { return wrapped_->synchronize(); }

    const std::shared_ptr<SettingsStore>& wrapped() const { return wrapped_; }

private:
    std::shared_ptr<SettingsStore> wrapped_;
};

class BVGEO_API ForwardingFileSystem : public FileSystem {
public:
    static constexpr auto kMember = &Platform::files;
    explicit ForwardingFileSystem(std::shared_ptr<FileSystem> wrapped) : wrapped_(std::move(wrapped)) {}

    std::string documentsDirectory() const override { return wrapped_->documentsDirectory(); }
    bool fileExists(const std::string& path) const override { return wrapped_->fileExists(path); }
    FileResult moveItem(const std::string& from, const std::string& to) override {
        return wrapped_->moveItem(from, to);
    }
    FileResult removeItem(const std::string& path) override { return wrapped_->removeItem(path); }
    FileResult createDirectories(const std::string& path) override { return wrapped_->createDirectories(path); }
    FileResult writeFileAtomically(const std::string& path, const std::string& contents) override {
        return wrapped_->writeFileAtomically(path, contents);
    }
    FileResult readFile(const std::string& path, std::string& contents) const override {
        return wrapped_->readFile(path, contents);
    }

    const std::shared_ptr<FileSystem>& wrapped() const { return wrapped_; }

private:
    std::shared_ptr<FileSystem> wrapped_;
};

class BVGEO_API ForwardingUuidGenerator : public UuidGenerator {
public:
    static constexpr auto kMember = &Platform::uuids;
    explicit ForwardingUuidGenerator(std::shared_ptr<UuidGenerator> wrapped) : wrapped_(std::move(wrapped)) {}

    std::string newUuid() override { return wrapped_->newUuid(); }

    const std::shared_ptr<UuidGenerator>& wrapped() const { return wrapped_; }

private:
    std::shared_ptr<UuidGenerator> wrapped_;
};

class BVGEO_API ForwardingConsole : public Console {
public:
    static constexpr auto kMember = &Platform::console;
    explicit ForwardingConsole(std::shared_ptr<Console> wrapped) : wrapped_(std::move(wrapped)) {}

    void log(std::string_view line) override { wrapped_->log(line); }
    void print(std::string_view line) override { wrapped_->print(line); }
    bool wantsPrints() const override { return wrapped_->wantsPrints(); }
    void warn(std::string_view line) override { wrapped_->warn(line); }

    const std::shared_ptr<Console>& wrapped() const { return wrapped_; }

private:
    std::shared_ptr<Console> wrapped_;
};

class BVGEO_API ForwardingDateFormatter : public DateFormatter {
public:
    static constexpr auto kMember = &Platform::dateFormatter;
    explicit ForwardingDateFormatter(std::shared_ptr<DateFormatter> wrapped) : wrapped_(std::move(wrapped)) {}

    std::string format(double secondsSince1970, std::string_view pattern) const override {
        return wrapped_->format(secondsSince1970, pattern);
    }

    const std::shared_ptr<DateFormatter>& wrapped() const { return wrapped_; }

private:
    std::shared_ptr<DateFormatter> wrapped_;
};

class BVGEO_API ForwardingApplication : public Application {
public:
    static constexpr auto kMember = &Platform::application;
    explicit ForwardingApplication(std::shared_ptr<Application> wrapped) : wrapped_(std::move(wrapped)) {}

    ApplicationState applicationState() const override { return wrapped_->applicationState(); }
    std::optional<std::vector<std::string>> backgroundModes() const override { return wrapped_->backgroundModes(); }
    std::string shortVersion() const override { return wrapped_->shortVersion(); }
    std::string name() const override { return wrapped_->name(); }

    const std::shared_ptr<Application>& wrapped() const { return wrapped_; }

private:
    std::shared_ptr<Application> wrapped_;
};

class BVGEO_API ForwardingDevice : public Device {
public:
    static constexpr auto kMember = &Platform::device;
    explicit ForwardingDevice(std::shared_ptr<Device> wrapped) : wrapped_(std::move(wrapped)) {}

    void setBatteryMonitoringEnabled(bool enabled) override { wrapped_->setBatteryMonitoringEnabled(enabled); }
    bool isBatteryMonitoringEnabled() const override { return wrapped_->isBatteryMonitoringEnabled(); }
    BatteryState batteryState() const override { return wrapped_->batteryState(); }
    float batteryLevel() const override { return wrapped_->batteryLevel(); }
    std::string name() const override { return wrapped_->name(); }
    std::string model() const override { return wrapped_->model(); }
    std::string systemName() const override { return wrapped_->systemName(); }
    std::string systemVersion() const override { return wrapped_->systemVersion(); }

    const std::shared_ptr<Device>& wrapped() const { return wrapped_; }

private:
    std::shared_ptr<Device> wrapped_;
};

class BVGEO_API ForwardingLocationService : public LocationService {
public:
    static constexpr auto kMember = &Platform::locationService;
    explicit ForwardingLocationService(std::shared_ptr<LocationService> wrapped) : wrapped_(std::move(wrapped)) {}

    std::unique_ptr<LocationManager> makeLocationManager() override { return wrapped_->makeLocationManager(); }
    AuthorizationStatus authorizationStatus() const override { return wrapped_->authorizationStatus(); }

    const std::shared_ptr<LocationService>& wrapped() const { return wrapped_; }

private:
    std::shared_ptr<LocationService> wrapped_;
};

class BVGEO_API ForwardingReachability : public Reachability {
public:
    static constexpr auto kMember = &Platform::reachability;
    explicit ForwardingReachability(std::shared_ptr<Reachability> wrapped) : wrapped_(std::move(wrapped)) {}

    BVReachabilityType isConnectedToNetworkOfType() override { return wrapped_->isConnectedToNetworkOfType(); }
    bool isConnectedToNetwork() override { return wrapped_->isConnectedToNetwork(); }

    const std::shared_ptr<Reachability>& wrapped() const { return wrapped_; }

private:
    std::shared_ptr<Reachability> wrapped_;
};

// Puts a new `Wrapper` (made over the facility it stands in for, then `args`) in
// that facility's place in `bundle`, and returns it for the test to steer.
template <class Wrapper, class... Args>
std::shared_ptr<Wrapper> wrapFacility(Platform& bundle, Args&&... args) {
    auto wrapper = std::make_shared<Wrapper>(bundle.*Wrapper::kMember, std::forward<Args>(args)...);
    bundle.*Wrapper::kMember = wrapper;
    return wrapper;
}

// The installed platform with one facility wrapped, installed in its place; like
// installPlatform(), call it while no library work is running. Objects that took a
// facility from the platform before (a settings store given its file system) keep
// the one they took.
template <class Wrapper, class... Args>
std::shared_ptr<Wrapper> installWrapped(Args&&... args) {
    Platform bundle = platform();
    auto wrapper = wrapFacility<Wrapper>(bundle, std::forward<Args>(args)...);
    installPlatform(std::move(bundle));
    return wrapper;
}

} // namespace bvgeo::testing
