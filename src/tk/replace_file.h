// tk_replace_file: puts a new content in place of a file so that a reader
// sees either the old file or the whole new one, never a part.
//
// The content is written to a new temporary file in the same directory
// (".<name>.XXXXXX"), flushed to the disk, given its mode and then renamed
// over the path; the directory is flushed afterwards. When any step fails
// the temporary file is removed and the file at the path is left as it was,
// so a full disk cannot leave half a file behind in place of a good one.
//
// A path that is a symbolic link replaces the file the link points to and
// keeps the link. A path that names an existing special file (a device such
// as /dev/stdout, a pipe) cannot be replaced; the content is written to it
// directly. A directory fails with EISDIR.
//
// Thread-safety: reentrant; two writers of the same path leave the content of
// the one that renamed last.
#pragma once

#include <string>
#include <string_view>

#include <sys/types.h>

namespace qb {

// Returns 0, or the error number of the step that failed.
int tk_replace_file(const std::string& path, std::string_view content, mode_t mode);

}  // namespace qb
