// The recorder under a disk that does not keep up and one that refuses
// writes: frames are dropped and counted, never waited for.
#include "device/FrameRecorder.h"
#include "support/Eventually.h"
#include "tools/ToolTestFiles.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace vyx::device;

namespace {

using Bytes = std::vector<std::uint8_t>;

ConnectReplies ethernetReplies() { return ConnectReplies{1, Bytes(512, 0x11), {}, Bytes(20, 'M')}; }

void offer(FrameRecorder& recorder, int link, std::uint8_t id) {
    const Bytes frame(4096, id);
    recorder.offer(link, RecordType::MarkerFrame, frame.data(), frame.size());
}

std::vector<std::uint64_t> figures(const RecordingStats& s) {
    return {s.active, static_cast<std::uint64_t>(s.lastError), s.framesRecorded, s.framesDropped};
}

}  // namespace

// The file is a pipe that is already full, so the writer stays blocked on
// the opening records until the test reads: with room for one queued frame,
// the later ones are dropped, whatever the timing.
TEST(FrameRecorder, DropsWhatTheHeldBackWriterCannotTakeAndSkipsRepeats) {
    ScratchDirectory scratch;
    const std::string fifo = scratch.file("slow.vyxrec");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const int reader = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    const int filler = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
    ASSERT_TRUE(reader >= 0 && filler >= 0);
    std::size_t prefill = 0;
    for (const std::uint8_t zero = 0; ::write(filler, &zero, 1) == 1;) ++prefill;
    ASSERT_EQ(errno, EAGAIN);
    ::close(filler);

    FrameRecorder recorder(1);
    ASSERT_TRUE(recorder.start(fifo, ethernetReplies()));
    EXPECT_FALSE(recorder.start(scratch.file("second.vyxrec"), ethernetReplies()));
    for (const auto& [link, id] : {std::pair{1, 1}, {1, 1}, {0, 9}, {1, 2}, {1, 3}, {1, 1}})
        offer(recorder, link, static_cast<std::uint8_t>(id));  // queued, repeat, other link, 3 dropped
    EXPECT_EQ(figures(recorder.stats()), (std::vector<std::uint64_t>{1, 0, 0, 3}));

    Bytes received;
    std::thread drain([&] {
        ::fcntl(reader, F_SETFL, 0);
        std::uint8_t chunk[65536];
        for (ssize_t n; (n = ::read(reader, chunk, sizeof chunk)) > 0;)
            received.insert(received.end(), chunk, chunk + n);
    });
    EXPECT_TRUE(recorder.finish());
    drain.join();
    ::close(reader);
    EXPECT_FALSE(recorder.finish());

    ASSERT_GT(received.size(), prefill);
    writeFile(scratch.file("copy"), std::string(received.begin() + static_cast<long>(prefill), received.end()));
    const Recording recording = readRecording(scratch.file("copy"));
    ASSERT_EQ(recording.records.size(), 3u);  // configuration, model text, frame 1
    EXPECT_EQ(recording.records[2].payload, Bytes(4096, 1));
    EXPECT_TRUE(recording.finishedCleanly);
    EXPECT_EQ((std::vector<std::uint64_t>{recording.framesRecorded, recording.framesDropped,
                                          recorder.stats().bytesWritten}),
              (std::vector<std::uint64_t>{1, 3, received.size() - prefill}));
    EXPECT_EQ(figures(recorder.stats()), (std::vector<std::uint64_t>{0, 0, 1, 3}));
}

TEST(FrameRecorder, AWriteErrorStopsTheRecordingAndLaterFramesCountAsDropped) {
    FrameRecorder recorder;
    ASSERT_TRUE(recorder.start("/dev/full", ethernetReplies()));
    ASSERT_TRUE(vyx::test::eventually([&] { return !recorder.stats().active; }));
    offer(recorder, 1, 1);
    offer(recorder, 1, 2);
    EXPECT_EQ(figures(recorder.stats()), (std::vector<std::uint64_t>{0, kRecordingWriteError, 0, 2}));

    // Refused starts change nothing: a file that cannot be created, replies
    // that do not fit the format.
    ConnectReplies oversized = ethernetReplies();
    oversized.configuration.resize(1032);
    EXPECT_FALSE(recorder.start("/nonexistent-directory/rec.vyxrec", ethernetReplies()));
    EXPECT_FALSE(recorder.start("/dev/null", oversized));
    EXPECT_EQ(figures(recorder.stats()), (std::vector<std::uint64_t>{0, kRecordingWriteError, 0, 2}));

    EXPECT_TRUE(recorder.finish());  // the stopped recording was still open
    EXPECT_FALSE(recorder.finish());
    offer(recorder, 1, 3);
    EXPECT_EQ(recorder.stats().framesDropped, 2u);
}
