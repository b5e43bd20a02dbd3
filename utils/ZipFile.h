// Writes one zip archive from files and whole folders with minizip: deflate
// at zlib's default level, UTF-8 names, each entry stamped with the local
// time it was opened. Inputs go in batches of 50 so that a long list is never
// expanded at once. Paths are device paths, read under the host root; entry
// names are device paths too, shortened by the tail depth.
#pragma once

#include <minizip/zip.h>

#include <deque>
#include <string>
#include <vector>

namespace zelkor::tessel {

class ZipFile {
  public:
    // With `tailDepth` of 1 or more an entry is named by the last `tailDepth`
    // components of its input path (plus the levels below an input folder);
    // below 1 the path is used as it is.
    ZipFile(std::vector<std::string> paths, int tailDepth);
    ~ZipFile();
    ZipFile(const ZipFile&) = delete;
    ZipFile& operator=(const ZipFile&) = delete;

    // Opens a new archive at `zipPath`, closing one still open first.
    bool create(const std::string& zipPath);
    // Writes every pending input, then the archive's directory. The archive is
    // closed even when an input failed; the result is false then.
    bool close();
    // Writes batches of 50 pending inputs: one batch once 50 are pending, or
    // all of them with `force`. False when any entry failed.
    bool FlushFilesIfNeeded(bool force);

    bool OpenNewFileInZip(zipFile handle, const std::string& name);
    bool AddFileContentToZip(const std::string& path);
    bool AddDirectoryEntryToZip(const std::string& name);

  private:
    static constexpr size_t kBatchSize = 50;

    bool writeDirectory(const std::string& dir);
    // Opens the entry `name`, copies `path` into it and closes it.
    bool writeFileEntry(const std::string& path, const std::string& name);

    std::deque<std::string> mPending;
    const int mTailDepth;
    zipFile mZip = nullptr;
};

}  // namespace zelkor::tessel
