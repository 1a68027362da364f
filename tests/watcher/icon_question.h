// How watch.exe asks a message box's thread which of the system's icons it shows.
#pragma once

/// The registered message that the icon's control is sent.
inline constexpr const wchar_t* kIconQuestion = L"VelmorantWatchIconQuestion";
/// The control's property that holds the answer: the icon's resource number, from IDI_ERROR on.
inline constexpr const wchar_t* kIconAnswer = L"VelmorantWatchIconAnswer";
