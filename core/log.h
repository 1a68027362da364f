// The log file, "updater.log" in "Logs\" below the current directory, and time as text.
#pragma once

#include <chrono>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>

namespace ve {

/// The log's folder and the name of its file.
inline constexpr std::wstring_view kLogFolder = L"Logs";
inline constexpr std::wstring_view kLogName = L"updater.log";

/// Appends one entry: a line with the time stamp in brackets, what `writeBody` writes, a blank
/// line. "Logs\" is made when missing and is the current directory while `writeBody` runs; the
/// previous one is put back in any case. A log that cannot be written is nobody's failure: there is
/// no entry then, and no error. No lock is taken.
void WriteLogEntry(const std::function<void(std::ostream&)>& writeBody);

/// The local time, in brackets of its own: "[16.11.2026 03:41:19-045]".
[[nodiscard]] std::string TimeStamp();

/// The local time for names of files: "16_11_2026-03_41_19".
[[nodiscard]] std::wstring FileNameTimeStamp();

/// "hours.minutes:seconds", two digits each. The minutes are those of the whole duration, on
/// purpose: 3725 seconds are "01.62:05". Throws std::length_error when a field needs three digits.
[[nodiscard]] std::wstring DurationText(float seconds);

/// Time stamps of a given moment, as `TimeStamp` and `FileNameTimeStamp` make them of the current.
[[nodiscard]] std::string TimeStampAt(std::chrono::system_clock::time_point moment);
[[nodiscard]] std::wstring FileNameTimeStampAt(std::chrono::system_clock::time_point moment);

}  // namespace ve
