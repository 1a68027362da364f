// The registered messages that watch.exe sends to a window of a watched program. The hook of
// icon_hook.dll handles them on the window's own thread.
#pragma once

/// Which of the system's icons does this control show? The hook answers in kIconAnswer.
inline constexpr const wchar_t* kIconQuestion = L"VelmorantWatchIconQuestion";
/// The control's property: the icon's resource number, from IDI_ERROR on.
inline constexpr const wchar_t* kIconAnswer = L"VelmorantWatchIconAnswer";

/// End this dialog; wParam is its result.
inline constexpr const wchar_t* kEndDialog = L"VelmorantWatchEndDialog";

/// Wait for the event kReleaseEvent. While it waits, the hook has set the property kBlocked.
inline constexpr const wchar_t* kBlock = L"VelmorantWatchBlock";
inline constexpr const wchar_t* kBlocked = L"VelmorantWatchBlocked";
/// The event's name, to which the window's number is appended.
inline constexpr const wchar_t* kReleaseEvent = L"VelmorantWatchRelease";
