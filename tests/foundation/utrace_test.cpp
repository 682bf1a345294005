#include "foundation/utrace.h"
#include <catch.hpp>
