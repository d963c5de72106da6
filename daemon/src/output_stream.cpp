// SPDX-License-Identifier: Apache-2.0
// Line assembly, escaping and the token bucket of one process's output.
#include "output_stream.h"

#include <algorithm>
#include <utility>

#include "utf8.h"

namespace tarn::em::daemon {

namespace {

/// The credit of one token: a nanosecond of refill adds `perSecond` units.
constexpr std::uint64_t TOKEN = 1000000000U;

/// `raw` with control characters but tab, and bytes outside valid UTF-8, written as \xNN.
void AppendEscaped(std::string& out, std::string_view raw) {
    static const char HEX[] = "0123456789abcdef";
    for (std::size_t i = 0U; i < raw.size();) {
        const auto c = static_cast<unsigned char>(raw[i]);
        const std::size_t length = c >= 0x80U ? Utf8Length(raw, i) : 1U;
        if ((c < 0x20U && c != '\t') || c == 0x7FU || length == 0U) {
            out += "\\x";
            out += HEX[c >> 4U];
            out += HEX[c & 0x0FU];
            ++i;
        } else {
            out.append(raw.substr(i, length));
            i += length;
        }
    }
}

/// Where to cut `text` so that the first piece has at most `limit` bytes and does not end in
/// the middle of a character (its lead byte says how long it is; the rest may not be read yet).
std::size_t CutAt(std::string_view text, std::size_t limit) {
    for (std::size_t back = 1U; back <= 3U; ++back) {
        const auto c = static_cast<unsigned char>(text[limit - back]);
        if ((c & 0xC0U) != 0x80U) {
            const std::size_t length = c >= 0xF0U ? 4U : c >= 0xE0U ? 3U : c >= 0xC0U ? 2U : 1U;
            return length > back ? limit - back : limit;
        }
    }
    return limit;
}

}  // namespace

OutputStream::OutputStream(std::string process, Clock::time_point now, OutputLimits limits)
    : process_(std::move(process)),
      limits_(limits),
      credit_(static_cast<std::uint64_t>(limits.burst) * TOKEN),
      refilled_(now) {
    limits_.maxLine = std::max<std::size_t>(limits_.maxLine, 4U);  // room for any UTF-8 character
}

void OutputStream::Feed(std::string_view bytes, Clock::time_point now, std::vector<OutputRecord>& records) {
    while (!bytes.empty()) {
        const std::size_t end = bytes.find('\n');
        partial_.append(bytes.substr(0U, end));
        CutLongLine(now, records);
        if (end == std::string_view::npos) {
            return;
        }
        if (!partial_.empty() && partial_.back() == '\r') {
            partial_.pop_back();
        }
        Emit(partial_, now, records);
        partial_.clear();
        bytes.remove_prefix(end + 1U);
    }
}

void OutputStream::Finish(Clock::time_point now, std::vector<OutputRecord>& records) {
    CutLongLine(now, records);
    if (!partial_.empty()) {
        Emit(partial_, now, records);
        partial_.clear();
    }
    Report(records);
}

void OutputStream::CutLongLine(Clock::time_point now, std::vector<OutputRecord>& records) {
    // One byte more is kept when it is a carriage return: the line feed that ends the line may follow.
    while (partial_.size() > limits_.maxLine && !(partial_.size() == limits_.maxLine + 1U && partial_.back() == '\r')) {
        const std::size_t cut = CutAt(partial_, limits_.maxLine);
        Emit(std::string_view(partial_).substr(0U, cut), now, records);
        partial_.erase(0U, cut);
    }
}

void OutputStream::Emit(std::string_view raw, Clock::time_point now, std::vector<OutputRecord>& records) {
    const std::uint64_t full = static_cast<std::uint64_t>(limits_.burst) * TOKEN;
    if (now > refilled_ && limits_.perSecond > 0U) {
        const auto elapsed =
            static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now - refilled_).count());
        // Past the time that fills the bucket from empty it is full, and the product cannot overflow.
        const std::uint64_t toFull = full / limits_.perSecond + 1U;
        credit_ = elapsed >= toFull ? full : std::min(full, credit_ + elapsed * limits_.perSecond);
        refilled_ = now;
    }
    // Once dropping, go on dropping until a second's worth of lines is back: under a flood that
    // gives one report per second, not one per line let through.
    const std::uint64_t resume = std::max<std::uint64_t>(1U, std::min(limits_.perSecond, limits_.burst)) * TOKEN;
    if (credit_ < (dropped_ == 0U ? TOKEN : resume)) {
        ++dropped_;
        return;
    }
    credit_ -= TOKEN;
    Report(records);
    OutputRecord record;
    record.text.reserve(raw.size() + process_.size() + 20U);
    record.text += "[Output][process=";
    record.text += process_;
    record.text += "] ";
    AppendEscaped(record.text, raw);
    records.push_back(std::move(record));
}

void OutputStream::Report(std::vector<OutputRecord>& records) {
    if (dropped_ == 0U) {
        return;
    }
    records.push_back(
        {true, "[Output][Lines dropped][process=" + process_ + ", count=" + std::to_string(dropped_) + "]"});
    dropped_ = 0U;
}

}  // namespace tarn::em::daemon
