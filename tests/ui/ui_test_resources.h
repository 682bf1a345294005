// Identifiers of the test program's own dialogs and bitmaps; read by the resource compiler too.
#pragma once

#define TEST_DIALOG 500              // with every kind of child
#define TEST_DIALOG_BARE 501         // without children
#define TEST_DIALOG_BROWSER 502      // with a child 201
#define TEST_DIALOG_ACTIVEX 503      // with an ActiveX control as child 201
#define TEST_DIALOG_ACTIVEX_MANY 504 // with several, and numbers that repeat
#define TEST_DIALOG_ACTIVEX_DATA 505 // with data for them
#define TEST_DIALOG_MISSING 599

#define TEST_SKIN 600
#define TEST_SKIN_ALL_RED 601
#define TEST_SKIN_NO_RED 602
#define TEST_SKIN_MISSING 699
#define TEST_FACE_NORMAL 700
#define TEST_FACE_HOT 701
#define TEST_FACE_PRESSED 702

#define TEST_CHILD_BROWSER 201
#define TEST_CHILD_CAPTION 1006
#define TEST_CHILD_BUTTON 1
#define TEST_CHILD_EDIT 1010
#define TEST_CHILD_LABEL 1011
#define TEST_CHILD_RADIO 1012
