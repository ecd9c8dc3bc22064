#pragma once
#include <filesystem>
#include <string>

namespace tavorin {

// The one way this studio replaces a file: a temporary file beside it, synced,
// renamed over, and the folder synced, so a reader never sees half a document
// and a power cut leaves either the old file or the new one.
namespace AtomicFile {

enum class Access { shared, privateToUser };
// `whileRunning` skips the syncs, for a file that means nothing once the process is
// gone (the control file): a power cut cannot hurt it, and a busy disk's sync
// would hold up the studio's start.
enum class Durability { disk, whileRunning };

// Throws a finished sentence ("could not write <file>: <reason>") on failure and
// leaves no temporary file behind. `privateToUser` makes the file 0600 from its
// first byte, for secrets.
void write(const std::filesystem::path& file, const std::string& text, Access access = Access::shared,
           Durability durability = Durability::disk);

}  // namespace AtomicFile

}  // namespace tavorin
