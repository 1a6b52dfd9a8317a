// Control numbers of the about box and the capture progress dialog, shared
// by their templates (res/dialogs.rc) and their code. Plain definitions, so
// that the resource compiler can read them.
#pragma once

// About box: labels on the left, values on the right; the build and date
// rows are made hidden.
#define IDC_ABOUT_PRODUCT 201
#define IDC_ABOUT_COPYRIGHT 202
#define IDC_ABOUT_VERSION_LABEL 203
#define IDC_ABOUT_BUILD_LABEL 204
#define IDC_ABOUT_DATE_LABEL 205
#define IDC_ABOUT_VERSION 206
#define IDC_ABOUT_BUILD 207
#define IDC_ABOUT_DATE 208

// Capture progress dialog.
#define IDC_PROGRESS_BAR 210
#define IDC_PROGRESS_REMAINING 212
#define IDC_PROGRESS_EXPLANATION 213
