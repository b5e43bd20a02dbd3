#include "BenchImage.h"

#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <utility>
#include <vector>

#include "LogRecords.h"
#include "tools/tessel-image/dump/DumpImage.h"

namespace zelkor::tessel::bench {
namespace {

namespace fs = std::filesystem;
using testing::LittleEndian;

// Kernel log lines as printk records, `size` bytes of them.
std::string PrintkRecords(uint64_t size, std::mt19937_64& random) {
    std::string out;
    for (uint64_t ts = 1000000; out.size() + 128 < size; ts += random() % 5000000) {
        std::string text = "cpu" + std::to_string(random() % 8) + ": driver event " +
                           std::to_string(random()) + " handled in " +
                           std::to_string(random() % 1000) + " us";
        out += testing::PrintkRecord(ts, 6, text, 4);
    }
    return out;
}

std::string PmsgRecords(uint64_t size, std::mt19937_64& random) {
    std::string out;
    while (out.size() + 256 < size) {
        const uint16_t pid = random() % 30000, tid = random() % 30000;
        out += testing::PmsgRecord(0, pid, tid, 1700000000 + out.size(), 0, 4, "ActivityManager",
                                   "Start proc " + std::to_string(random() % 30000));
    }
    return out;
}

std::string TextLines(uint64_t size, const std::string& line) {
    std::string out;
    for (int i = 0; out.size() + line.size() + 12 < size; ++i) {
        out += line + " " + std::to_string(i) + "\n";
    }
    return out;
}

// The trust-zone diagnostic area: header, boot and reset tables, a full ring.
std::string TzDiag(const std::string& ring) {
    std::string area(0x400, '\0');
    auto put = [&](size_t at, uint32_t v) { area.replace(at, 4, LittleEndian(v, 4)); };
    put(0, 0x747A6461);
    put(4, 0x00030000);
    put(8, 8);
    put(16, 168);
    put(20, 360);
    put(28, 0x400);
    put(32, ring.size());
    area.replace(0x3FE, 2, LittleEndian(ring.size() - 1, 2));
    return area + ring;
}

// The hypervisor diagnostic area: header for 8 CPUs, then a ring that has not
// wrapped yet.
std::string HypDiag(const std::string& ring) {
    std::string area(88, '\0');
    area.replace(0, 4, LittleEndian(0x6879706D, 4));  // "hypm"
    area.replace(4, 4, LittleEndian(8, 4));
    area.replace(8, 4, LittleEndian(area.size(), 4));   // ring offset
    area.replace(14, 2, LittleEndian(ring.size(), 2));  // next write offset
    return area + ring;
}

void Randomise(std::string* chunk, std::mt19937_64& random) {
    for (size_t i = 0; i + 8 <= chunk->size(); i += 8) {
        uint64_t v = random();
        memcpy(&(*chunk)[i], &v, 8);
    }
}

}  // namespace

uint64_t WriteBenchBlackbox(const std::string& image, const std::string& scratchDir) {
    std::mt19937_64 random(1);
    std::vector<std::pair<std::string, std::string>> sections = {
            {"md_kmsg", PrintkRecords(8 << 20, random)},
            {"md_KMDT0x110.BIN", PrintkRecords(256 << 10, random)},
            {"md_pmsg", PmsgRecords(512 << 10, random)},
            {"md_cpusys", TextLines(64 << 10, "edac_ppi_interrupt_handler status")},
            {"md_TZ_DIAG", TzDiag(TextLines(16 << 10, "[12.3](42 1 2)"))},
            {"md_ltz", TextLines(64 << 10, "[12.3](7 3 9)")},
            {"md_HYP_DIAG", HypDiag(TextLines(8 << 10, "hyp"))},
            {"md_XBL_LOG", TextLines(128 << 10, "XBL boot step")},
            {"md_TZ_IMEM", std::string(4096, '\x5a')},
            {"md_TZ_AES_KEY", std::string(256, 'k')},
            {"md_TZ_AES_IV", std::string(16, 'i')},
            {"md_TZ_HMAC", std::string(32, 'h')},
            {"md_encr_key_aes", std::string(256, 'k')},
            {"md_encr_key_iv", std::string(16, 'i')},
            {"md_encr_key_mac", std::string(32, 'm')},
            {"md_TZ_DUMP", std::string(4096, 'd')},
            {"md_MDMP_LOG", TextLines(16 << 10, "mdmp")},
            {"load.cmm", TextLines(4 << 10, "d.load.elf")},
            {"md_shrm", std::string(4096, 's')},
            {"md_aop", std::string(4096, 'a')},
    };
    image::DumpAddOptions options;
    options.image = image;
    options.time = "2024-05-06 7:08:09";
    uint64_t dumpBytes = 0;
    for (auto& [name, data] : sections) {
        std::string file = scratchDir + "/section." + name;
        std::ofstream(file, std::ios::binary) << data;
        options.sections.push_back({name, file});
        dumpBytes += data.size();
    }
    // Slots 1 .. 9 first, then the newest in slot 0: a raw dump with nine
    // stored ones behind it.
    for (uint32_t slot : {1, 2, 3, 4, 5, 6, 7, 8, 9, 0}) {
        options.slot = slot;
        std::string error;
        if (!image::WriteDump(options, &error)) {
            fprintf(stderr, "bench: %s\n", error.c_str());
            abort();
        }
    }
    for (auto& section : options.sections) fs::remove(section.dataFile);
    return dumpBytes;
}

void WriteRawdump(const std::string& path, const std::string& kind, uint64_t size) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (kind == "zeros") {
        out.close();
        fs::resize_file(path, size);
        return;
    }
    std::mt19937_64 random(2);
    constexpr uint64_t kChunk = 1 << 20, kPiece = 64 << 10;
    std::string chunk;
    for (uint64_t done = 0; done < size; done += chunk.size()) {
        chunk = PrintkRecords(kChunk, random);
        chunk.resize(std::min(kChunk, size - done), '\0');
        if (kind == "random") {
            Randomise(&chunk, random);
        } else if (kind == "mixed") {
            for (uint64_t at = 0; at < chunk.size(); at += kPiece) {
                std::string piece = chunk.substr(at, kPiece);
                const uint64_t turn = (done + at) / kPiece % 3;
                if (turn == 0) piece.assign(piece.size(), '\0');
                if (turn == 2) Randomise(&piece, random);
                chunk.replace(at, piece.size(), piece);
            }
        }
        out << chunk;
    }
}

uint64_t RawdumpSizeFromEnv(uint64_t defaultMb) {
    const char* mb = getenv("TESSEL_BENCH_RAWDUMP_MB");
    return (mb != nullptr ? strtoull(mb, nullptr, 10) : defaultMb) << 20;
}

uint64_t ZlibCompressFile(const std::string& path, int level, int outFd) {
    FILE* file = fopen(path.c_str(), "rb");
    if (file == nullptr) return 0;
    std::vector<unsigned char> in(512 << 10), out(512 << 10);
    z_stream zs{};
    deflateInit2(&zs, level, Z_DEFLATED, MAX_WBITS, MAX_MEM_LEVEL, Z_DEFAULT_STRATEGY);
    uint64_t packed = 0;
    int flush = Z_NO_FLUSH;
    do {
        size_t n = fread(in.data(), 1, in.size(), file);
        flush = n < in.size() ? Z_FINISH : Z_NO_FLUSH;
        zs.next_in = in.data();
        zs.avail_in = static_cast<uInt>(n);
        do {
            zs.next_out = out.data();
            zs.avail_out = static_cast<uInt>(out.size());
            deflate(&zs, flush);
            const size_t produced = out.size() - zs.avail_out;
            if (outFd >= 0 && write(outFd, out.data(), produced) != ssize_t(produced)) {
                packed = 0;
                flush = Z_FINISH;
                break;
            }
            packed += produced;
        } while (zs.avail_out == 0);
    } while (flush != Z_FINISH);
    deflateEnd(&zs);
    fclose(file);
    return packed;
}

}  // namespace zelkor::tessel::bench
