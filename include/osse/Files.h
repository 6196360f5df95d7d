// Paths and files. Results: 0, or a code of ossErrorMapSystem, unless a line says otherwise. A null pointer is
// OSS_NULL_POINTER, or the answer no. Any thread may call.
#pragma once

#include <osse/Export.h>

struct OSSDirectoryCreateRequest {
    unsigned int version;       // OSS_REQUEST_VERSION
    const char* path;           // not kept
    unsigned long permissions;  // less the process's umask
    unsigned int depth;         // 2: missing directories above it are created too, enterable and writable by the owner
};

struct OSSFileInfo {
    unsigned long size;         // bytes
    unsigned long permissions;  // the twelve permission bits
    unsigned int owner;
    unsigned int group;
};

extern "C" {

// The last part of the path into buffer ("b" of "/a/b"); the whole path when it has no "/".
// Too small a buffer: OSS_BUFFER_TOO_SMALL, and the buffer is empty; so for the other texts below.
OSSE_EXPORT unsigned int ossBaseName(const char* path, char* buffer, unsigned long size);

// What stands before the last "/" ("/a" of "/a/b"); "." when there is none, "/" for a file of the root.
OSSE_EXPORT unsigned int ossDirectoryName(const char* path, char* buffer, unsigned long size);

// Whether the path leads to a regular file or to a directory; links are followed.
OSSE_EXPORT bool ossIsFile(const char* path);
OSSE_EXPORT bool ossIsDirectory(const char* path);

// A directory that exists already is no failure. The name of each one made is synced to the medium; when that fails,
// the directory stays and the code tells. A directory above that may not be read, or that its file system cannot sync,
// does not count.
OSSE_EXPORT unsigned int ossDirectoryCreate(const OSSDirectoryCreateRequest* request);

OSSE_EXPORT unsigned int ossFileDelete(const char* path);
OSSE_EXPORT unsigned int ossFileRename(const char* from, const char* to);
OSSE_EXPORT unsigned int ossFileGetInfoV9(const char* path, OSSFileInfo* info);
OSSE_EXPORT unsigned int ossFileSetPermissions(const char* path, unsigned long permissions);

// Not 0 when the path leads to a regular file that belongs to root and has the set-user-ID bit. Links on the way count
// only when they are root's: another's leads where that one pleases.
OSSE_EXPORT int ossPathIsSetuidRoot(const char* path);

// The home directory of the user followed by the relative path (which begins with "/") into buffer. An unknown user is
// the code of ENOENT; too small a buffer OSS_BUFFER_TOO_SMALL.
OSSE_EXPORT unsigned int ossBuildHomeDirectoryRelativePath(const char* user, const char* relative, char* buffer,
                                                           unsigned long size);
}
