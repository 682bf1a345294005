// The linker's names of functions of the compiler's run-time, for sources that take their place.
#pragma once

#define VELT_QUOTED_AS_IS(text) #text
#define VELT_QUOTED(text) VELT_QUOTED_AS_IS(text)

/// A C function's symbol.
#define VELT_SYMBOL(name) VELT_QUOTED(__USER_LABEL_PREFIX__) name

/// What --wrap makes of a C function's symbol: the one that is called instead, and the function
/// itself.
#define VELT_WRAP_SYMBOL(name) VELT_SYMBOL("__wrap_" name)
#define VELT_REAL_SYMBOL(name) VELT_SYMBOL("__real_" name)

/// The pointer to a function of the system's as --wrap names it: the symbol without the prefix that
/// all of them have. `argumentBytes` count in the names of 32-bit Windows.
#ifdef _WIN64
#define VELT_IMPORT(name, argumentBytes) "__imp_" name
#else
#define VELT_IMPORT(name, argumentBytes) "_imp__" name "@" argumentBytes
#endif
