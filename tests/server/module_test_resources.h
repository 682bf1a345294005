// Identifiers of the test program's own scripts; read by the resource compiler too.
#pragma once

#define TEST_SCRIPT_WORKS 901
#define TEST_SCRIPT_UNCLOSED 902
#define TEST_SCRIPT_MISSING 999
