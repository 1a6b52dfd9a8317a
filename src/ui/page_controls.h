// Control numbers of the preferences pages, shared by their templates
// (res/pages.rc) and their code. Plain definitions, so that the resource
// compiler can read them.
#pragma once

// Capture page.
#define IDC_CAPTURE_AUTOMATIC 214
#define IDC_CAPTURE_MANUALLY 215
#define IDC_CAPTURE_STARTUP 216
#define IDC_CAPTURE_INTERVAL 217
#define IDC_CAPTURE_DAYS_BEFORE 218
#define IDC_CAPTURE_TASKS 219
#define IDC_CAPTURE_EMAILS 220
#define IDC_CAPTURE_NOW 221
#define IDC_CAPTURE_ABOUT 222
#define IDC_CAPTURE_FREQUENCY 223
#define IDC_CAPTURE_EVERY 224
#define IDC_CAPTURE_MINUTES 225
#define IDC_CAPTURE_CALENDAR 226
#define IDC_CAPTURE_BEFORE 227
#define IDC_CAPTURE_DAYS_AFTER 228
#define IDC_CAPTURE_AFTER 229
#define IDC_CAPTURE_TASKS_HEADING 230
#define IDC_CAPTURE_TASKS_ITEMS 231
#define IDC_CAPTURE_EMAILS_HEADING 232
#define IDC_CAPTURE_EMAILS_ITEMS 233

// Data and Folders pages: a title above a check tree.
#define IDC_DATA_TITLE 240
#define IDC_DATA_TREE 241
#define IDC_FOLDERS_TITLE 242
#define IDC_FOLDERS_TREE 243
