// Resource numbers of the dialogs and bitmaps of the user interface. The
// control numbers are the dialogs' own and are kept with their classes.
#pragma once

#define IDD_ABOUTBOX 100
#define IDD_CAPTURE_PROGRESS 101
#define IDD_CAPTURE_PAGE 102
#define IDD_DATA_PAGE 103
#define IDD_FOLDER_PAGE 104

// 64 x 16: the check tree's four state images (none, unchecked, checked,
// fixed).
#define IDB_CHECK_STATES 206
// 144 x 16: the nine folder and store images of the trees.
#define IDB_FOLDER_IMAGES 209
