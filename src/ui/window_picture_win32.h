// Pictures of windows as they stand on the screen, for the screenshots of
// the documentation: a 24-bit BMP of the window's rectangle, frame and
// caption included, taken from the screen after the window has painted.
#pragma once

#include <windows.h>

#include <cstdio>
#include <string>

namespace PIM::testing {

inline bool saveWindowPicture(HWND window, const std::wstring& path) {
  // What is still queued (a page just switched to, its tab) first.
  MSG msg;
  while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
    TranslateMessage(&msg);
    DispatchMessageW(&msg);
  }
  RedrawWindow(window, nullptr, nullptr,
               RDW_INVALIDATE | RDW_UPDATENOW | RDW_ALLCHILDREN | RDW_FRAME);
  RECT r = {};
  GetWindowRect(window, &r);
  const int cx = r.right - r.left;
  const int cy = r.bottom - r.top;
  if (cx <= 0 || cy <= 0) return false;
  // From the window's own surface, not the screen's: the display may not
  // have been sent the latest drawing yet.
  HDC source = GetWindowDC(window);
  HDC memory = CreateCompatibleDC(source);
  BITMAPINFO info = {};
  info.bmiHeader.biSize = sizeof info.bmiHeader;
  info.bmiHeader.biWidth = cx;
  info.bmiHeader.biHeight = cy;
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 24;
  void* bits = nullptr;
  HBITMAP bitmap = CreateDIBSection(source, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
  bool ok = false;
  if (bitmap) {
    HGDIOBJ old = SelectObject(memory, bitmap);
    ok = BitBlt(memory, 0, 0, cx, cy, source, 0, 0, SRCCOPY | NOMIRRORBITMAP) != FALSE;
    GdiFlush();
    SelectObject(memory, old);
  }
  const DWORD stride = (static_cast<DWORD>(cx) * 3 + 3) & ~3u;
  BITMAPFILEHEADER header = {};
  header.bfType = 0x4D42;  // "BM"
  header.bfOffBits = sizeof header + sizeof info.bmiHeader;
  header.bfSize = header.bfOffBits + stride * static_cast<DWORD>(cy);
  if (ok) {
    FILE* file = _wfopen(path.c_str(), L"wb");
    ok = file && fwrite(&header, sizeof header, 1, file) == 1 &&
         fwrite(&info.bmiHeader, sizeof info.bmiHeader, 1, file) == 1 &&
         fwrite(bits, stride * static_cast<DWORD>(cy), 1, file) == 1;
    if (file) ok = fclose(file) == 0 && ok;
  }
  if (bitmap) DeleteObject(bitmap);
  DeleteDC(memory);
  ReleaseDC(window, source);
  return ok;
}

}  // namespace PIM::testing
