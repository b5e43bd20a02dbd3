#include "tools/tesselctl/FsCommands.h"

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <cutils/ashmem.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "tools/tesselctl/ServiceCommands.h"

namespace zelkor::tessel::tools {

const char kFsUsage[] =
        "  fs ls PATH [--full]        list the files below PATH: name, size, modified\n"
        "  fs cat PATH NAME           print a file\n"
        "  fs get PATH NAME OUT       copy a file out through shared memory\n"
        "  fs put IN PATH NAME        copy a file in through shared memory\n"
        "  fs write PATH NAME [--mode M] [--append]\n"
        "                             write standard input to a file (mode octal, 0644)\n"
        "  fs rm PATH NAME            delete a file or a folder and all below it\n"
        "  fs exists PATH NAME        print true or false\n"
        "  fs size PATH NAME          print a file's size in bytes\n"
        "  fs mkdir PATH NAME [--mode M]\n"
        "                             create a folder and its missing parents (0755)\n"
        "  fs cp SRC DST              copy a file inside the daemon's file system\n"
        "  fs setprop KEY VALUE       set a property through the daemon\n"
        "  fs partsize CALLER NAME    size of /dev/block/by-name/NAME\n";

namespace {

using ::aidl::vendor::zelkor::hardware::tessel::common::Ashmem;
using ::aidl::vendor::zelkor::hardware::tessel::common::FileInfo;
using ::aidl::vendor::zelkor::hardware::tessel::common::ITesselImpl;

int Report(const char* command, const ndk::ScopedAStatus& status) {
    return ReportStatus(std::string("fs ") + command, status);
}

// An ashmem region of `size` bytes (at least one: a region cannot be empty),
// mapped for both directions.
struct Region {
    android::base::unique_fd fd;
    void* address = MAP_FAILED;
    size_t length = 0;

    explicit Region(size_t size) : length(std::max<size_t>(size, 1)) {
        fd.reset(ashmem_create_region("tesselctl-fs", length));
        if (fd.ok()) {
            address = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
        }
    }
    ~Region() {
        if (address != MAP_FAILED) munmap(address, length);
    }
    bool ok() const { return address != MAP_FAILED; }
    Ashmem parcelable() const {
        Ashmem mem;
        mem.fd = ndk::ScopedFileDescriptor(dup(fd.get()));
        mem.mSize = static_cast<int64_t>(length);
        return mem;
    }
};

bool ParseMode(const char* text, int32_t* mode) {
    char* end = nullptr;
    errno = 0;
    long value = strtol(text, &end, 8);
    if (errno != 0 || end == text || *end != '\0' || value < 0 || value > 07777) return false;
    *mode = static_cast<int32_t>(value);
    return true;
}

std::string LocalTime(int64_t seconds) {
    time_t when = static_cast<time_t>(seconds);
    struct tm parts;
    char text[32];
    if (localtime_r(&when, &parts) == nullptr ||
        strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &parts) == 0) {
        return std::to_string(seconds);
    }
    return text;
}

int List(ITesselImpl& fs, const std::string& path, bool full) {
    std::vector<FileInfo> files;
    ndk::ScopedAStatus status =
            full ? fs.DirIntgrFiles(path, &files) : fs.DirListFiles(path, &files);
    if (int rc = Report("ls", status); rc != 0) return rc;
    std::sort(files.begin(), files.end(),
              [](const FileInfo& a, const FileInfo& b) { return a.name < b.name; });
    for (const FileInfo& file : files) {
        printf("%s\t%" PRId64 "\t%s\n", file.name.c_str(), file.size,
               LocalTime(file.mtime).c_str());
    }
    return 0;
}

int Get(ITesselImpl& fs, const std::string& path, const std::string& name, const char* out) {
    // The file may grow between sizing and reading; the service then refuses
    // the smaller region and the size is asked again.
    for (int attempt = 0; attempt < 3; ++attempt) {
        int64_t size = 0;
        if (int rc = Report("get", fs.GetFileSize(path, name, &size)); rc != 0) return rc;
        Region region(static_cast<size_t>(size));
        if (!region.ok()) {
            fprintf(stderr, "fs get: no shared memory for %" PRId64 " bytes\n", size);
            return 1;
        }
        ndk::ScopedAStatus status = fs.ReadFromFile(region.parcelable(), path, name);
        int64_t now = size;
        if (!status.isOk() && status.getStatus() == -22 &&
            fs.GetFileSize(path, name, &now).isOk() && now != size) {
            continue;
        }
        if (int rc = Report("get", status); rc != 0) return rc;
        android::base::unique_fd file(open(out, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
        if (!file.ok() ||
            !android::base::WriteFully(file.get(), region.address, static_cast<size_t>(size))) {
            fprintf(stderr, "fs get: %s: %s\n", out, strerror(errno));
            return 1;
        }
        return 0;
    }
    fprintf(stderr, "fs get: %s/%s keeps changing size\n", path.c_str(), name.c_str());
    return 1;
}

int Put(ITesselImpl& fs, const char* in, const std::string& path, const std::string& name) {
    android::base::unique_fd file(open(in, O_RDONLY | O_CLOEXEC));
    struct stat st;
    if (!file.ok() || fstat(file.get(), &st) != 0) {
        fprintf(stderr, "fs put: %s: %s\n", in, strerror(errno));
        return 1;
    }
    const size_t size = static_cast<size_t>(st.st_size);
    Region region(size);
    if (!region.ok() || !android::base::ReadFully(file.get(), region.address, size)) {
        fprintf(stderr, "fs put: cannot stage %s in shared memory: %s\n", in, strerror(errno));
        return 1;
    }
    return Report("put",
                  fs.WriteToFile(region.parcelable(), path, name, static_cast<int64_t>(size)));
}

int Write(ITesselImpl& fs, int argc, char** argv) {
    int32_t mode = 0644;
    bool append = false;
    std::vector<std::string> names;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--append") == 0) {
            append = true;
        } else if (strcmp(argv[i], "--mode") == 0 && i + 1 < argc &&
                   ParseMode(argv[i + 1], &mode)) {
            ++i;
        } else {
            names.push_back(argv[i]);
        }
    }
    if (names.size() != 2) return -1;
    std::string data;
    if (!android::base::ReadFdToString(STDIN_FILENO, &data)) {
        fprintf(stderr, "fs write: cannot read standard input: %s\n", strerror(errno));
        return 1;
    }
    return Report("write", fs.TesselWriteFile(names[0], names[1], data, mode, append ? 1 : 0));
}

int Mkdir(ITesselImpl& fs, int argc, char** argv) {
    if (argc == 3) return Report("mkdir", fs.TesselCreateFolder(argv[1], argv[2]));
    int32_t mode = 0;
    if (argc != 5 || strcmp(argv[3], "--mode") != 0 || !ParseMode(argv[4], &mode)) return -1;
    return Report("mkdir", fs.TesselCreateFolderMode(argv[1], argv[2], mode));
}

// The subcommand's exit status, or -1 when its arguments do not fit.
int Dispatch(ITesselImpl& fs, const std::string& command, int argc, char** argv) {
    if (command == "ls" && (argc == 2 || (argc == 3 && strcmp(argv[2], "--full") == 0))) {
        return List(fs, argv[1], argc == 3);
    }
    if (command == "cat" && argc == 3) {
        std::string text;
        int rc = Report("cat", fs.TesselReadFile(argv[1], argv[2], &text));
        if (rc == 0) fwrite(text.data(), 1, text.size(), stdout);
        return rc;
    }
    if (command == "get" && argc == 4) return Get(fs, argv[1], argv[2], argv[3]);
    if (command == "put" && argc == 4) return Put(fs, argv[1], argv[2], argv[3]);
    if (command == "write") return Write(fs, argc, argv);
    if (command == "rm" && argc == 3)
        return Report("rm", fs.EraseFileOrDirectory(argv[1], argv[2]));
    if (command == "exists" && argc == 3) {
        bool exists = false;
        int rc = Report("exists", fs.IsExists(argv[1], argv[2], &exists));
        if (rc == 0) printf("%s\n", exists ? "true" : "false");
        return rc;
    }
    if ((command == "size" && argc == 3) || (command == "partsize" && argc == 3)) {
        int64_t size = 0;
        int rc = Report(command.c_str(), command == "size"
                                                 ? fs.GetFileSize(argv[1], argv[2], &size)
                                                 : fs.GetPartitionSize(argv[1], argv[2], &size));
        if (rc == 0) printf("%" PRId64 "\n", size);
        return rc;
    }
    if (command == "mkdir") return Mkdir(fs, argc, argv);
    if (command == "cp" && argc == 3) return Report("cp", fs.CopyFile(argv[1], argv[2]));
    if (command == "setprop" && argc == 3) {
        return Report("setprop", fs.TesselSetProp(argv[1], argv[2]));
    }
    return -1;
}

}  // namespace

int RunFsCommand(int argc, char** argv) {
    if (argc < 1) {
        fprintf(stderr, "fs: which subcommand?\n%s", kFsUsage);
        return 2;
    }
    static const char* const kCommands[] = {"ls",    "cat", "get",     "put",
                                            "write", "rm",  "exists",  "size",
                                            "mkdir", "cp",  "setprop", "partsize"};
    const std::string command = argv[0];
    if (std::none_of(std::begin(kCommands), std::end(kCommands),
                     [&](const char* name) { return command == name; })) {
        fprintf(stderr, "fs: unknown subcommand '%s'\n%s", command.c_str(), kFsUsage);
        return 2;
    }
    std::shared_ptr<ITesselImpl> fs = ConnectTessel(("fs " + command).c_str());
    if (fs == nullptr) return 1;
    int rc = Dispatch(*fs, command, argc, argv);
    if (rc < 0) {
        fprintf(stderr, "fs %s: wrong arguments\n%s", command.c_str(), kFsUsage);
        return 2;
    }
    return rc;
}

}  // namespace zelkor::tessel::tools
