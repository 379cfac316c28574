// Outbox: trigger reports owed to the server, kept in "BVGOutbox.sqlite" beside the
// database so that they outlive the process. A report is written before it joins
// the request queue and removed when the server accepts it; whatever is left at the
// next launch is sent again with its original idempotency key. The file has one
// table and is never part of the database's reset.
//
// Bounded by the host's ExtendedOptions: beyond outboxMaxReports the oldest reports
// fall out, and so does any report older than outboxMaxAgeSeconds (0 turns either
// bound off); each is logged
// under REQUESTS with its fence id and event. A file that SQLite cannot read, or
// one written by a newer version, is moved aside with a console line and a fresh
// one started.
//
// The file is one kind of the storage engine's (DatabaseConnection): opened,
// checked, moved aside and named as the database is, with every commit synced. Any
// thread may call (the trigger engine adds, the transport thread removes); no lock
// is held while the outbox logs or calls the console.
#pragma once

#include "datastore/DatabaseFile.hpp"
#include "request/URLRequest.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bvgeo {

struct OutboxReport {
    std::string key; // the report's Idempotency-Key
    URLRequest request;
    std::string fenceId;
    std::string event;
    std::int64_t createdAt = 0; // seconds since 1970, platform clock
};

class Outbox {
public:
    static constexpr std::string_view kFileName = "BVGOutbox.sqlite";
    static constexpr int kSchemaVersion = 1;
    static constexpr std::string_view kKeyHeader = "Idempotency-Key";

    static Outbox& sharedInstance();
    ~Outbox();

    // Documents directory + kFileName.
    static std::string path();

    // What kind of file it is for the storage engine.
    static const DatabaseFile& outboxFile();

    // Stores the report durably (the commit is synced), then applies the bounds.
    // False when it could not be stored; the report is then only in memory.
    bool add(const OutboxReport& report);
    // Forgets the report with this key; nothing when there is none.
    void remove(const std::string& key);
    // The reports still owed, oldest first, after applying the bounds.
    std::vector<OutboxReport> pending();
    // How many reports are stored; 0 when the file cannot be read.
    std::size_t count();

    void close();

    Outbox(const Outbox&) = delete;
    Outbox& operator=(const Outbox&) = delete;

private:
    Outbox() = default;

    void applyBounds();
};

} // namespace bvgeo
