#pragma once

// Files that a traced process creates (Fleck buffers, trace files) are opened so that nobody
// else can steer or break them: no symbolic link is followed, a new file is created exclusively
// with mode 0600, and a file that is already there is taken over only when it is a plain file of
// ours with a single link (its mode is then narrowed to 0600). Anything else is refused, so that a
// link planted under a predictable name cannot make the process overwrite its target, and a file
// planted there by someone else (who could truncate it under our mapping) is not used.

#include <string>

namespace Trace {

// Opens `path` read-write (append-only with `append`), creating it as above. Raises
// Vel::RangeException naming the path and the reason when the file cannot be used.
int openPrivateFile(std::string const& path, bool append = false);

// The directory for files a process creates on its own: $XDG_RUNTIME_DIR (private to the user)
// when set, else $TMPDIR, else /tmp.
std::string privateFileDirectory();

}  // namespace Trace
