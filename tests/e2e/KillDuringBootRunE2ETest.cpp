// tesseld killed with SIGKILL at twenty points spread over the boot run of a
// crash dump, then booted again on the same root: whatever the point, the
// crash ends up recorded exactly once in the crash history, the events and
// "md_history", and the files of the finished run are whole.
#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <regex>
#include <string>

#include "BootRunRoot.h"
#include "modules/BSPLogProcessor/minidump/PendingCrash.h"
#include "modules/blackbox/BlackboxLayout.h"

namespace zelkor::tessel::testing {
namespace {

constexpr int kPoints = 20;

// The hardware-info module logs on its own thread, wherever it gets to: its
// lines are no kill points.
const std::string kIgnoredTag = "Halvex-HardWareInfo";

// A log line's prefix, and that of android-base's LOG ("file.cpp:line] ").
const std::regex kLogPrefix(R"([\w.-]+ [VDIWEF] \d\d-\d\d \d\d:\d\d:\d\d +\d+ +\d+ )");
const std::regex kFileAndLine(R"(^\S+ [VDIWEF] [^\]]+ [\w.]+:\d+\] )");

// The daemon's log lines, by their logger prefix (a few lines end without a
// newline of their own, so lines of text are not the measure).
std::vector<std::string> LogMessages(const std::string& log) {
    std::vector<std::string> messages;
    std::vector<size_t> starts;
    for (auto it = std::sregex_iterator(log.begin(), log.end(), kLogPrefix);
         it != std::sregex_iterator(); ++it) {
        starts.push_back(static_cast<size_t>(it->position()));
    }
    for (size_t i = 0; i < starts.size(); ++i) {
        const size_t end = i + 1 < starts.size() ? starts[i + 1] : log.size();
        if (log.compare(starts[i], kIgnoredTag.size(), kIgnoredTag) == 0) continue;
        std::string message = log.substr(starts[i], end - starts[i]);
        // Lines of android-base's LOG ("file.cpp:line] ") reach standard error
        // without passing the log writer that kills, so they are no points.
        if (std::regex_search(message, kFileAndLine)) continue;
        messages.push_back(std::move(message));
    }
    return messages;
}

// What finds a line again in another run: its message up to the first number
// of three digits or more (times, thread ids) or its end.
std::string KillText(const std::string& line) {
    std::smatch prefix;
    std::regex_search(line, prefix, kLogPrefix, std::regex_constants::match_continuous);
    const std::string message = line.substr(prefix.length(), line.find('\n') - prefix.length());
    std::smatch number;
    if (!std::regex_search(message, number, std::regex(R"(\d{3})"))) return message;
    return message.substr(0, static_cast<size_t>(number.position()));
}

size_t FirstMessageWith(const std::vector<std::string>& messages, const std::string& text) {
    for (size_t i = 0; i < messages.size(); ++i) {
        if (messages[i].find(text) != std::string::npos) return i;
    }
    ADD_FAILURE() << "no log line with " << text;
    return 0;
}

class KilledRoot : public BootRunRoot {
  public:
    KilledRoot() {
        MakeBlackbox();
        AddOopsDump();
    }

    // Boots tesseld set to kill itself where it would write the first log
    // line holding `text`. Whether it died so; the boot otherwise ran to its
    // end and the daemon is stopped.
    bool BootKilledAt(const std::string& text) {
        bool killed = false;
        Boot("TESSEL_KILL_AT_LOG_TEXT=" + text, &killed);
        return killed;
    }

    // "minidump.gz" inflates in one call to the raw dump partition.
    bool CompressedDumpWhole() {
        const std::string packed = Read(std::string(kDiag) + "/minidump.gz");
        const std::string raw = Read("/dev/block/by-name/rawdump");
        std::string out(raw.size() + 1, '\0');
        uLongf outLen = out.size();
        if (uncompress(reinterpret_cast<Bytef*>(out.data()), &outLen,
                       reinterpret_cast<const Bytef*>(packed.data()), packed.size()) != Z_OK) {
            return false;
        }
        out.resize(outLen);
        return out == raw;
    }
};

TEST(KillDuringBootRunE2ETest, CrashRecordedOnceWhereverTheRunIsKilled) {
    // The log of an undisturbed run places the twenty points: its last twenty
    // lines up to the end of the boot run, the module's start and every step
    // of the run.
    std::vector<std::string> messages;
    {
        KilledRoot reference;
        messages = LogMessages(reference.Boot());
    }
    const size_t last = FirstMessageWith(messages, "log utils done, quit");
    const size_t waiting = FirstMessageWith(messages, "Waiting for diag dir accessible");
    ASSERT_GE(last + 1, size_t{kPoints});
    ASSERT_GE(waiting, 1u);
    // Further back when the main thread's lines fell inside the run: the
    // module's start is always among the points. Each point is found in the
    // killed run by its text, wherever the other threads' lines put it.
    const size_t first = std::min(last + 1 - kPoints, waiting - 1);

    for (size_t index = first; index <= last; ++index) {
        const std::string text = KillText(messages[index]);
        SCOPED_TRACE("kill point " + std::to_string(index - first) + ": " +
                     messages[index].substr(0, 100));
        ASSERT_FALSE(text.empty());
        KilledRoot root;
        // Both runs' logs go with any failure of this point.
        bool killed = false;
        const std::string killedLog = root.Boot("TESSEL_KILL_AT_LOG_TEXT=" + text, &killed);
        EXPECT_TRUE(killed) << killedLog;
        SCOPED_TRACE("the run after the kill:\n" + root.Boot());
        EXPECT_EQ(root.Inspect(root.Host(kBlackbox))["crash_history"]["header"]["current_num"]
                          .asUInt(),
                  1u);
        EXPECT_EQ(root.Events().size(), 1u);
        const std::vector<std::string> history = root.MdHistory();
        EXPECT_EQ(history.size(), 1u);
        if (!history.empty()) {
            EXPECT_EQ(history[0].substr(0, 6), "1)[41]");
            EXPECT_NE(history[0].find("|kpanic|"), std::string::npos) << history[0];
        }
        EXPECT_TRUE(root.CompressedDumpWhole());
        EXPECT_NE(root.Read(std::string(kDiag) + "/last_kmsg").find("faulty_write"),
                  std::string::npos);
    }
}

// The line form of the switch: tesseld dies where it would write its third
// line through the Android log. Lines of other threads counted just before
// may not be out yet, so at most two are written.
TEST(KillDuringBootRunE2ETest, TheLineSwitchKillsBeforeTheNthLine) {
    KilledRoot root;
    bool killed = false;
    const std::string log = root.Boot("TESSEL_KILL_AT_LOG_LINE=3", &killed);
    ASSERT_TRUE(killed);
    EXPECT_LE(LogMessages(log).size(), 2u) << log;
}

TEST(KillDuringBootRunE2ETest, CrashTakenUpAgainSkipsTheStepsItsNoteListsAsDone) {
    KilledRoot root;
    // Killed once the dump is marked: the note names it, nothing is done yet.
    ASSERT_TRUE(root.BootKilledAt(std::string("[2]timestamp=")));
    const std::string note = root.Read(Minidump::kPendingCrashFile);
    ASSERT_EQ(note.substr(0, 16), "pending-crash-1 ") << note;

    // As if the event had gone out just before the run died.
    std::istringstream fields(note);
    std::string tag, inBlackbox, slot, boot, reported, before, time;
    fields >> tag >> inBlackbox >> slot >> boot >> reported >> before;
    std::getline(fields, time);
    ASSERT_EQ(reported, "0");
    root.Put(Minidump::kPendingCrashFile,
             tag + " " + inBlackbox + " " + slot + " " + boot + " 1 " + before + time + "\n");
    const std::string log = root.Boot();
    EXPECT_NE(log.find("already sent by the run that took the dump"), std::string::npos) << log;
    EXPECT_TRUE(root.Events().empty());
    EXPECT_EQ(root.MdHistory().size(), 1u);
    EXPECT_FALSE(std::filesystem::exists(root.Host(Minidump::kPendingCrashFile)));

    // A note naming another dump is not taken up, and does not outlive the run.
    root.Put(Minidump::kPendingCrashFile, tag + " " + inBlackbox + " " + slot + " 7 0 -1" + time);
    root.Boot();
    EXPECT_EQ(root.MdHistory().size(), 1u);
    EXPECT_FALSE(std::filesystem::exists(root.Host(Minidump::kPendingCrashFile)));
}

// A run that died between marking the dump and stamping its time left a taken
// dump without a time; the note holds the time it was stamping (another
// second than the next run's). The next run takes the crash up, records it
// once and stamps that time.
TEST(KillDuringBootRunE2ETest, ATakenDumpWithoutItsTimeIsTakenUpWithTheNotesTime) {
    KilledRoot root;
    ASSERT_TRUE(root.BootKilledAt(std::string("[2]timestamp=")));
    const Json::Value slot = root.Inspect(root.Host(kBlackbox))["minidump"]["slots"][0];
    ASSERT_TRUE(slot["parsed"].asBool());
    const std::string note = root.Read(Minidump::kPendingCrashFile);
    const std::string stamped = " " + slot["time"].asString() + "\n";
    ASSERT_GT(note.size(), stamped.size());
    ASSERT_EQ(note.substr(note.size() - stamped.size()), stamped) << note;
    const std::string time = "2026-01-02 03:04:05";
    root.Put(Minidump::kPendingCrashFile,
             note.substr(0, note.size() - stamped.size()) + " " + time + "\n");
    {
        std::fstream image(root.Host(kBlackbox), std::ios::in | std::ios::out | std::ios::binary);
        image.seekp(static_cast<std::streamoff>(slot["offset"].asUInt64() +
                                                sizeof(blackbox::dump_header)));
        const blackbox::dump_header_v2 noTime{};
        image.write(noTime.time, sizeof(noTime.time));
        ASSERT_TRUE(image.good());
    }

    const std::string log = root.Boot();
    EXPECT_NE(log.find("was taken by a run that did not record its crash"), std::string::npos)
            << log;
    EXPECT_NE(log.find("[2]timestamp=" + time), std::string::npos) << log;
    EXPECT_EQ(root.Inspect(root.Host(kBlackbox))["minidump"]["slots"][0]["time"].asString(), time);
    EXPECT_EQ(root.Events().size(), 1u);
    EXPECT_EQ(root.MdHistory().size(), 1u);
}

}  // namespace
}  // namespace zelkor::tessel::testing
