// The subcommands of the bvgeo program, each taking the words after its name.
// Each returns the exit status; a UsageError thrown out of one becomes status 2.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace bvgeo::cli {

int runReplayCommand(const std::vector<std::string>& words, std::ostream& out);
int runDemoCommand(const std::vector<std::string>& words, std::ostream& out);
int runServeCommand(const std::vector<std::string>& words, std::ostream& out);
int runZonesCommand(const std::vector<std::string>& words, std::ostream& out);
int runTrackCommand(const std::vector<std::string>& words, std::ostream& out);
int runConsoleCommand(const std::vector<std::string>& words, std::ostream& out);

extern const char* const kDemoHelp;
extern const char* const kServeHelp;
extern const char* const kZonesHelp;
extern const char* const kTrackHelp;
extern const char* const kConsoleHelp;

} // namespace bvgeo::cli
