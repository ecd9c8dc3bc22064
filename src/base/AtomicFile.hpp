#pragma once
#include <filesystem>
#include <string>

namespace tavorin {

// The one way this studio replaces a file: a temporary file beside it, synced,
// renamed over, and the folder synced, so a reader never sees half a document
// and a power cut leaves either the old file or the new one.
namespace AtomicFile {

enum class Access { shared, privateToUser };

// Throws a finished sentence ("could not write <file>: <reason>") on failure and
// leaves no temporary file behind. `privateToUser` makes the file 0600 from its
// first byte, for secrets.
void write(const std::filesystem::path& file, const std::string& text, Access access = Access::shared);

}  // namespace AtomicFile

}  // namespace tavorin
