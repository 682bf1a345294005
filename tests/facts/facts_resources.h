#pragma once

#define IDR_FACT_LIST 101
