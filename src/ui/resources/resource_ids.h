// Identifiers of the dialog's resources and of its controls; read by the resource compiler too.
#pragma once

#define VELT_EULA_DIALOG 1000

#define VELT_EULA_DECLINE 1000
#define VELT_EULA_ACCEPT 1001
#define VELT_EULA_VIEW 1002
#define VELT_EULA_TITLE 1006 // hidden: the frame draws it as the caption
#define VELT_EULA_OK 1       // IDOK

#define VELT_SKIN 206
#define VELT_BUTTON_NORMAL 1009
#define VELT_BUTTON_HOT 1008
#define VELT_BUTTON_PRESSED 1007
