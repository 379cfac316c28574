// FaultyVfs: I/O faults for SQLite the way SQLite tests itself. While one exists it is
// the default VFS: it forwards every call to the real default VFS, and on request
// makes writes fail (every write after the first `okWrites` returns `code`, e.g.
// SQLITE_FULL) or syncs fail (fsync), until heal(); onlyFilesNamed() limits the
// faults to files whose name holds a text (the outbox, say). The library's
// connections are closed when it is made and when it goes, so they reopen through
// the VFS in charge. One at a time.
#pragma once

#include "datastore/BV1Database.hpp"

#include <sqlite3.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <string>

namespace bvgeo::testing {

class FaultyVfs {
public:
    FaultyVfs() {
        BV1Database::closeAll();
        real() = sqlite3_vfs_find(nullptr);
        vfs_ = *real();
        vfs_.zName = "bvgeo-faulty";
        vfs_.szOsFile = static_cast<int>(sizeof(File)) + real()->szOsFile;
        vfs_.xOpen = &FaultyVfs::open;
        vfs_.pAppData = this;
        sqlite3_vfs_register(&vfs_, 1);
    }
    ~FaultyVfs() {
        BV1Database::closeAll();
        sqlite3_vfs_unregister(&vfs_);
        sqlite3_vfs_register(real(), 1);
    }
    FaultyVfs(const FaultyVfs&) = delete;
    FaultyVfs& operator=(const FaultyVfs&) = delete;

    void failWritesAfter(int okWrites, int code = SQLITE_FULL) {
        writes_ = 0;
        okWrites_ = okWrites;
        code_ = code;
        armed_ = true;
    }
    void failSyncs(int code = SQLITE_IOERR_FSYNC) {
        code_ = code;
        syncsArmed_ = true;
    }
    // Files opened from now on whose name holds `text` (all when empty) take the faults.
    void onlyFilesNamed(std::string text) {
        std::lock_guard lock(mutex_);
        only_ = std::move(text);
    }
    void heal() {
        armed_ = false;
        syncsArmed_ = false;
    }
    int failedWrites() const { return failed_; }

private:
    struct File {
        sqlite3_file base;
        sqlite3_file* real;
        FaultyVfs* owner;
        bool targeted;
        char padding[7];
    };
    static_assert(sizeof(File) % 8 == 0, "the real file follows, 8-byte aligned");

    static sqlite3_vfs*& real() {
        static sqlite3_vfs* vfs = nullptr;
        return vfs;
    }
    static sqlite3_file* inner(sqlite3_file* file) { return reinterpret_cast<File*>(file)->real; }

    static int open(sqlite3_vfs* vfs, sqlite3_filename name, sqlite3_file* file, int flags, int* outFlags) {
        auto* f = reinterpret_cast<File*>(file);
        f->real = reinterpret_cast<sqlite3_file*>(f + 1);
        f->owner = static_cast<FaultyVfs*>(vfs->pAppData);
        {
            std::lock_guard lock(f->owner->mutex_);
            f->targeted = f->owner->only_.empty() || (name && std::strstr(name, f->owner->only_.c_str()));
        }
        const int rc = real()->xOpen(real(), name, f->real, flags, outFlags);
        f->base.pMethods = f->real->pMethods ? &methods() : nullptr;
        return rc;
    }

    static const sqlite3_io_methods& methods() {
        static const sqlite3_io_methods m = [] {
            sqlite3_io_methods io{};
            io.iVersion = 3;
            io.xClose = [](sqlite3_file* f) { return inner(f)->pMethods->xClose(inner(f)); };
            io.xRead = [](sqlite3_file* f, void* data, int amount, sqlite3_int64 offset) {
                return inner(f)->pMethods->xRead(inner(f), data, amount, offset);
            };
            io.xWrite = [](sqlite3_file* f, const void* data, int amount, sqlite3_int64 offset) {
                auto* owner = reinterpret_cast<File*>(f)->owner;
                if (reinterpret_cast<File*>(f)->targeted && owner->armed_ && ++owner->writes_ > owner->okWrites_) {
                    ++owner->failed_;
                    return owner->code_.load();
                }
                return inner(f)->pMethods->xWrite(inner(f), data, amount, offset);
            };
            io.xTruncate = [](sqlite3_file* f, sqlite3_int64 size) {
                return inner(f)->pMethods->xTruncate(inner(f), size);
            };
            io.xSync = [](sqlite3_file* f, int flags) {
                auto* owner = reinterpret_cast<File*>(f)->owner;
                if (reinterpret_cast<File*>(f)->targeted && owner->syncsArmed_) {
                    ++owner->failed_;
                    return owner->code_.load();
                }
                return inner(f)->pMethods->xSync(inner(f), flags);
            };
            io.xFileSize = [](sqlite3_file* f, sqlite3_int64* size) {
                return inner(f)->pMethods->xFileSize(inner(f), size);
            };
            io.xLock = [](sqlite3_file* f, int lock) { return inner(f)->pMethods->xLock(inner(f), lock); };
            io.xUnlock = [](sqlite3_file* f, int lock) { return inner(f)->pMethods->xUnlock(inner(f), lock); };
            io.xCheckReservedLock = [](sqlite3_file* f, int* out) {
                return inner(f)->pMethods->xCheckReservedLock(inner(f), out);
            };
            io.xFileControl = [](sqlite3_file* f, int op, void* arg) {
                return inner(f)->pMethods->xFileControl(inner(f), op, arg);
            };
            io.xSectorSize = [](sqlite3_file* f) { return inner(f)->pMethods->xSectorSize(inner(f)); };
            io.xDeviceCharacteristics = [](sqlite3_file* f) {
                return inner(f)->pMethods->xDeviceCharacteristics(inner(f));
            };
            io.xShmMap = [](sqlite3_file* f, int page, int size, int extend, void volatile** out) {
                return inner(f)->pMethods->xShmMap(inner(f), page, size, extend, out);
            };
            io.xShmLock = [](sqlite3_file* f, int offset, int n, int flags) {
                return inner(f)->pMethods->xShmLock(inner(f), offset, n, flags);
            };
            io.xShmBarrier = [](sqlite3_file* f) { inner(f)->pMethods->xShmBarrier(inner(f)); };
            io.xShmUnmap = [](sqlite3_file* f, int deleteFlag) {
                return inner(f)->pMethods->xShmUnmap(inner(f), deleteFlag);
            };
            io.xFetch = [](sqlite3_file* f, sqlite3_int64 offset, int amount, void** out) {
                return inner(f)->pMethods->xFetch(inner(f), offset, amount, out);
            };
            io.xUnfetch = [](sqlite3_file* f, sqlite3_int64 offset, void* page) {
                return inner(f)->pMethods->xUnfetch(inner(f), offset, page);
            };
            return io;
        }();
        return m;
    }

    sqlite3_vfs vfs_{};
    std::mutex mutex_;
    std::string only_;
    std::atomic<bool> armed_{false}, syncsArmed_{false};
    std::atomic<int> writes_{0}, okWrites_{0}, code_{SQLITE_FULL}, failed_{0};
};

} // namespace bvgeo::testing
