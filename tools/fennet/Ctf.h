// Export to the Common Trace Format 1.8, for the many viewers that read it.
#pragma once

#include "TraceSet.h"

#include <filesystem>
#include <vector>

namespace Fennet {

// Makes `folder` and writes the trace into it: the metadata and one stream for each thread.
//
// Throws std::system_error, naming the file, when the folder exists or cannot be written.
void exportCtf( const std::vector< TimedRecord >& records, const std::filesystem::path& folder );

} // namespace Fennet
