// The requests that the Launcher makes, with the same calls of WinINet and nothing around them.
#pragma once

#include <windows.h>

#include <wininet.h>

#include <string>

/// The body of one GET; empty whatever fails.
inline std::string BareRequest(const wchar_t* url) {
  constexpr DWORD kFlags =
      INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE | INTERNET_FLAG_NO_AUTH;
  HINTERNET root = InternetOpenW(nullptr, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0);
  HINTERNET request = InternetOpenUrlW(root, url, nullptr, 0, kFlags, 0);
  DWORD status = 0;
  DWORD length = 0;
  DWORD size = sizeof(DWORD);
  HttpQueryInfoW(request, HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &status, &size, nullptr);
  std::string body;
  if (status == HTTP_STATUS_OK) {
    HttpQueryInfoW(request, HTTP_QUERY_CONTENT_LENGTH | HTTP_QUERY_FLAG_NUMBER, &length, &size,
                   nullptr);
    body.reserve(length);
    char piece[1024];
    DWORD read = 0;
    while (InternetReadFile(request, piece, sizeof(piece), &read) != FALSE && read != 0) {
      body.append(piece, read);
    }
  }
  InternetCloseHandle(request);
  InternetCloseHandle(root);
  return body;
}
