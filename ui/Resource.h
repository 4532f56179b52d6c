// Numbers of the module's resources and of the page's controls, for the resource script and the sources.
#pragma once

#define IDS_TITLE 100
#define IDD_PAGE 201
#define IDB_PICTURE 202

#define IDC_SEND_ADDRESS 208
#define IDC_SEND_PORT 209
#define IDC_LOCAL_PORT 211
#define IDC_LOCAL_VIEW 215
#define IDC_PES 216
#define IDC_AV_ES 217
#define IDC_FREE_RUN 218
#define IDC_SENDING 219
#define IDC_DISABLE_DEMUX 220
#define IDC_DUMP 221
#define IDC_DUMP_FILE 223
#define IDC_BROWSE 224
