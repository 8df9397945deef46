# What every target of the project is compiled with.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_program(KORVEL_CCACHE ccache)
if(KORVEL_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_C_COMPILER_LAUNCHER "${KORVEL_CCACHE}")
    set(CMAKE_CXX_COMPILER_LAUNCHER "${KORVEL_CCACHE}")
endif()

set(KORVEL_SANITIZE "" CACHE STRING "Sanitizers for every target, as -fsanitize= takes them")
if(KORVEL_SANITIZE)
    add_compile_options(-fsanitize=${KORVEL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${KORVEL_SANITIZE})
endif()
if(KORVEL_SANITIZE MATCHES thread)
    # ThreadSanitizer does not know fences. A pool's own mutex orders its tasks without them.
    add_compile_definitions(BOOST_ASIO_DISABLE_FENCED_BLOCK)
endif()

option(KORVEL_COVERAGE "Count executed lines (gcov)" OFF)
if(KORVEL_COVERAGE)
    add_compile_options(--coverage)
    add_link_options(--coverage)
endif()

# The warnings are errors for our own sources; headers of other libraries come in as system ones.
add_library(korvel_warnings INTERFACE)
target_compile_options(korvel_warnings INTERFACE -Wall -Wextra -Wpedantic -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # GCC 12 sees overlapping copies inside std::string's own operator+ once it is inlined.
    target_compile_options(korvel_warnings INTERFACE -Wno-restrict)
endif()
