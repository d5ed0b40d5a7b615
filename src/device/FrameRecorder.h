// Writes a recording file (RecordingFormat.h) beside a live link: the
// configuration replies read at connect, then every marker and status frame
// the link's receiver offers, with the host time it arrived.
//
// Recording never slows acquisition. The receiver thread calls offer(),
// which only takes a small lock and copies the frame into a bounded queue;
// a writer thread of the recorder's own encodes and writes the queue out.
// When the queue is full the frame is left out of the recording and counted
// as dropped (the host still gets it). The figures can be read at any time
// from any thread.
#pragma once

#include "device/RecordingFormat.h"

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vyx::device {

// The configuration replies as a link's connect received them, which a
// recording of that link starts with.
struct ConnectReplies {
    int link = 1;  // 0 USB, 1 Ethernet, 2 Wi-Fi
    // The configuration reply: the blocks as read (512 or 1024 bytes), or on
    // Wi-Fi the 1032-byte configuration frame.
    std::vector<std::uint8_t> configuration;
    // The long configuration form (7680 bytes); empty when none was read.
    std::vector<std::uint8_t> longForm;
    // The model text reply (1 to 20 bytes); empty when none was read.
    std::vector<std::uint8_t> modelText;
};

struct RecordingStats {
    bool active = false;             // the writer is writing the file
    int lastError = 0;               // 0, or kRecordingWriteError
    std::uint64_t framesRecorded = 0;
    std::uint64_t framesDropped = 0;
    std::uint64_t bytesWritten = 0;  // the file's size so far
};

// The error a failed write leaves (the library's write error code).
constexpr int kRecordingWriteError = 4;
constexpr std::size_t kDefaultRecordQueueCapacity = 512;

class FrameRecorder {
public:
    // `queueCapacity`: frames that may wait for the writer (at least 1).
    explicit FrameRecorder(std::size_t queueCapacity = kDefaultRecordQueueCapacity);
    ~FrameRecorder();  // finish()
    FrameRecorder(const FrameRecorder&) = delete;
    FrameRecorder& operator=(const FrameRecorder&) = delete;

    // Creates (or truncates) the file at `path` and starts the writer, which
    // writes the header and the configuration records first. False, with
    // nothing changed, while a recording runs, when the replies do not fit
    // the format, or when the file cannot be created. A recording that
    // stopped on a write error, or that a link loss is finishing, is ended
    // first.
    bool start(const std::string& path, const ConnectReplies& replies);

    // Receiver thread: offers a marker frame or a Wi-Fi status frame that
    // arrived on `link`. Never waits for the writer. Ignored unless a
    // recording of that link runs; a frame equal to the last one offered of
    // its type is skipped; a frame that finds the queue full, or that comes
    // after a write error, is counted as dropped.
    void offer(int link, RecordType type, const std::uint8_t* data, std::size_t size);

    // Without waiting: makes the writer finish a running recording of `link`
    // (End record, close) once it has written what is queued. For a receiver
    // thread whose link is lost; finish() or start() joins the writer later.
    void requestFinish(int link);

    // Finishes the recording: the writer writes what is queued and the End
    // record, closes the file and is joined. True when a recording was open
    // (running, or stopped on a write error); false when there was none or
    // it had already been finished. Idempotent; callable from any thread
    // but the writer's.
    bool finish();

    // The running or the last recording's figures; all zero before any.
    RecordingStats stats() const;
    // The link of the running or the last recording; -1 before any.
    int link() const;

private:
    // Idle: nothing open. Running: frames are queued. Failed: a write failed
    // and the file is closed; offers are counted as dropped until finish().
    // Ending: the writer is writing the End record.
    enum class State { Idle, Running, Failed, Ending };

    struct PendingFrame {
        RecordType type;
        std::uint64_t timeNs;
        std::vector<std::uint8_t> bytes;
    };

    void writerLoop(int fd, std::vector<std::uint8_t> opening);
    // Writes and empties `buffer`; false when the file refuses it.
    bool writeOut(int fd, std::vector<std::uint8_t>& buffer);

    const std::size_t queueCapacity_;

    // Serialises start() and finish(), which join the writer.
    std::mutex controlMutex_;
    std::thread writer_;

    // Everything below up to the figures is under mutex_.
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    State state_ = State::Idle;
    int link_ = -1;
    std::chrono::steady_clock::time_point startTime_;
    std::deque<PendingFrame> queue_;
    // The last frame offered, per record type.
    std::array<std::vector<std::uint8_t>, 8> lastOffered_;

    std::atomic<bool> active_{false};
    std::atomic<int> lastError_{0};
    std::atomic<std::uint64_t> framesRecorded_{0};
    std::atomic<std::uint64_t> framesDropped_{0};
    std::atomic<std::uint64_t> bytesWritten_{0};
};

}  // namespace vyx::device
