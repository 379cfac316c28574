// Records: `bvgeo logs|triggers|locations`, reading a data directory's database
// back. Opens the file read-only, so reading never creates or changes anything,
// and works while another process is writing it.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace bvgeo::cli {

// `kind` is "logs", "triggers" or "locations". Exit status: 0, 1 when there is no
// readable database, 2 for bad options (thrown as UsageError).
int runRecords(const std::string& kind, const std::vector<std::string>& words, std::ostream& out);

extern const char* const kRecordsHelp;

} // namespace bvgeo::cli
