// SPDX-License-Identifier: Apache-2.0
// The output of one supervised process as emd logs it: bytes cut into lines, each line made
// safe for any log sink, and the lines limited in rate. No descriptor and no clock of its own:
// the caller feeds the bytes it read and the time it read them.
#ifndef TARN_EM_DAEMON_OUTPUT_STREAM_H
#define TARN_EM_DAEMON_OUTPUT_STREAM_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::em::daemon {

/// How much of a process's output emd logs.
struct OutputLimits {
    std::size_t maxLine{4096U};     ///< a longer line is logged in pieces of at most this many bytes
    std::uint32_t burst{1000U};     ///< lines logged at once after a quiet spell (the bucket's size)
    std::uint32_t perSecond{200U};  ///< lines per second in the long run (the bucket's refill)
};

/// One record to log.
struct OutputRecord {
    bool dropReport{false};  ///< true: how many lines were dropped (a warning); false: a line (info)
    std::string text;
};

/// Line assembly and rate limit of one process's output. A line ends at a line feed (a carriage
/// return before it is dropped). Control characters but tab, and bytes that are not valid UTF-8,
/// are written as \xNN, so that a line never carries a NUL, a line break or a broken character
/// into the log. Every line and every piece of a long line takes one token of a bucket of
/// `burst` tokens refilled at `perSecond`; a line without a token is dropped and counted, and so
/// is every line after it until the bucket holds `perSecond` tokens again (a second's worth).
/// The count is reported before the next line that is logged, or at the end of the stream.
/// @thread-safety none: one stream belongs to one thread.
class OutputStream {
public:
    using Clock = std::chrono::steady_clock;

    OutputStream(std::string process, Clock::time_point now, OutputLimits limits = {});

    /// Takes bytes read at `now`; appends what is to be logged to `records`.
    void Feed(std::string_view bytes, Clock::time_point now, std::vector<OutputRecord>& records);
    /// The stream ended at `now`: a last line without a line feed is logged, and what was dropped reported.
    void Finish(Clock::time_point now, std::vector<OutputRecord>& records);

    const std::string& Process() const noexcept { return process_; }

private:
    void Emit(std::string_view raw, Clock::time_point now, std::vector<OutputRecord>& records);
    void Report(std::vector<OutputRecord>& records);
    /// Logs leading pieces of `partial_` while it is longer than a line may be.
    void CutLongLine(Clock::time_point now, std::vector<OutputRecord>& records);

    std::string process_;
    OutputLimits limits_;
    std::string partial_;  ///< the bytes of the line under way
    /// The bucket, 10^9 units a token: a nanosecond of refill adds `perSecond` units.
    std::uint64_t credit_;
    Clock::time_point refilled_;
    std::uint64_t dropped_{0U};
};

}  // namespace tarn::em::daemon

#endif
