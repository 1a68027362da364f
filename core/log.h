// The log file, "updater.log" in "Logs\" below the current directory, and time as text.
//
//   ve::WriteLogEntry([](std::ostream& log) { log << "Error while running updater:\n..."; });
#pragma once

#include <functional>
#include <ostream>
#include <string>

namespace ve {

/// Appends one entry to the log: a line with the time stamp in brackets, what `writeBody` writes, a
/// blank line. Creates "Logs\" if it is missing and makes it the current directory while
/// `writeBody` runs; restores the previous one also when `writeBody` throws. If the folder cannot
/// be created, returns without calling `writeBody`; ignores all other write errors, too: a log that
/// fails must not keep the player from the game. Takes no lock: no other thread may use the current
/// directory meanwhile.
void WriteLogEntry(const std::function<void(std::ostream&)>& writeBody);

/// The local time in brackets, with milliseconds: "[16.11.2026 03:41:19-045]".
[[nodiscard]] std::string TimeStamp();

/// The local time for names of files: "16_11_2026-03_41_19". Not called by the Launcher; part of
/// the support library.
[[nodiscard]] std::wstring FileNameTimeStamp();

/// "hours.minutes:seconds", two digits each. The minutes are those of the whole duration, not those
/// within the hour: 3725 seconds are "01.62:05". Throws std::length_error when a field needs three
/// digits. Not called by the Launcher; part of the support library.
[[nodiscard]] std::wstring DurationText(float seconds);

}  // namespace ve
