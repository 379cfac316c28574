// FileSystem: the documents directory the host chose and the few file operations
// the library performs there (test, move, remove, create, atomic replace).
// Thread-safe; paths are plain UTF-8 text.
#pragma once

#include <bvgeo/Export.hpp>

#include <optional>
#include <string>
#include <vector>

namespace bvgeo {

// Outcome of a file operation: ok, or a human-readable description of what failed.
struct BVGEO_API FileResult {
    bool ok = true;
    std::string error;

    static FileResult success() { return {}; }
    static FileResult failure(std::string description) { return {false, std::move(description)}; }
    explicit operator bool() const { return ok; }
};

class BVGEO_API FileSystem {
public:
    virtual ~FileSystem() = default;

    // Where the database and the settings file live. Not created by this call.
    virtual std::string documentsDirectory() const = 0;

    virtual bool fileExists(const std::string& path) const = 0;

    // Fails when `to` already exists.
    virtual FileResult moveItem(const std::string& from, const std::string& to) = 0;
    virtual FileResult removeItem(const std::string& path) = 0;

    // Creates the directory and its missing parents; ok when it already exists.
    virtual FileResult createDirectories(const std::string& path) = 0;

    // Replaces `path` with `contents` so that a reader sees the old or the new file,
    // never a part: write a temporary file beside it, flush it, rename it over.
    virtual FileResult writeFileAtomically(const std::string& path, const std::string& contents) = 0;

    // Whole file into `contents`.
    virtual FileResult readFile(const std::string& path, std::string& contents) const = 0;
};

// Joins a directory and a file name with exactly one separator.
BVGEO_API std::string appendPathComponent(const std::string& directory, const std::string& name);

// Moves the damaged file `path` aside, to "<stem>.corrupt-<stamp><extension>" in the
// same directory ("BVGDatabase.sqlite" with stamp "20140510-092446" becomes
// "BVGDatabase.corrupt-20140510-092446.sqlite"), adding "-2", "-3"... to the stamp
// when that name is taken. Each of `companions` (suffixes such as "-wal") found
// beside `path` follows it under the new name, or is removed when it cannot move, so
// nothing of the old file is left for a new one to pick up. Returns the new path of
// `path`; std::nullopt with `error` set when it stayed where it was.
BVGEO_API std::optional<std::string> moveFileAside(FileSystem& files, const std::string& path,
                                                   const std::string& stamp,
                                                   const std::vector<std::string>& companions = {},
                                                   std::string* error = nullptr);
// The same with another word than "corrupt" in the new name ("<stem>.<kind>-<stamp>"),
// for a file set aside for another reason (written by a newer version, say).
BVGEO_API std::optional<std::string> moveFileAside(FileSystem& files, const std::string& path,
                                                   const std::string& kind, const std::string& stamp,
                                                   const std::vector<std::string>& companions,
                                                   std::string* error);

} // namespace bvgeo
