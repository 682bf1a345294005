if(WIN32)
    # The tracing code itself, and tracing as a debugger and a viewer see it of the shipped library.
    velt_add_test(foundation_trace_test
        FOLDER foundation
        SOURCES
            trace_debugger_test.cpp
            trace_viewer_test.cpp
            utrace_test.cpp
        LINKS
            velt_foundation)
endif()
