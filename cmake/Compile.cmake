# How every target of this project is compiled: C++20, many warnings, hidden symbols. Warnings are
# errors here, but not in the builds of others, whose compilers know other ones.
function(lanscout_compile target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast -Wformat=2
    $<$<BOOL:${LANSCOUT_WERROR}>:-Werror>
    # g++ 12 sees overlapping copies in "text" + std::string at -O2 and up (its bug 105651).
    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
endfunction()

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

# Optimised builds are hardened as Debian's packages are; those take their flags from Debian.
# (Debian's compilers make position independent programs of themselves; a test looks.)
if(LANSCOUT_HARDENING AND NOT LANSCOUT_SANITIZE AND NOT LANSCOUT_FUZZERS)
  include(CheckCXXCompilerFlag)
  set(optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
  set(flags -fstack-protector-strong -fstack-clash-protection)
  # Asked for by name: clang takes the flag of another processor, and then complains of each file.
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|amd64|AMD64|i[3-6]86)$")
    list(APPEND flags -fcf-protection)
  elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
    list(APPEND flags -mbranch-protection=standard)
  endif()
  foreach(flag IN LISTS flags)
    string(MAKE_C_IDENTIFIER has${flag} has)
    check_cxx_compiler_flag(${flag} ${has})
    if(${has})
      add_compile_options($<${optimised}:${flag}>)
    endif()
  endforeach()
  add_compile_options($<${optimised}:-U_FORTIFY_SOURCE> $<${optimised}:-D_FORTIFY_SOURCE=2>)
  add_link_options($<${optimised}:LINKER:-z,relro,-z,now>)
endif()

if(LANSCOUT_SANITIZE)
  add_compile_options(-fsanitize=${LANSCOUT_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g1)
  add_link_options(-fsanitize=${LANSCOUT_SANITIZE})
endif()
if(LANSCOUT_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link)  # libFuzzer counts what is run everywhere
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # clang 14 mangles a template of fmt 9 otherwise than the g++ that built libfmt did.
  add_compile_definitions(FMT_HEADER_ONLY)
endif()
