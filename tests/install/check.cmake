# Installs a built tree into an empty folder, moves that folder, and builds callers against it, once
# with find_package and once with pkg-config.
#
#   cmake -D BUILD=<build folder> -D SOURCE=<source folder> -P check.cmake

set(place ${BUILD}/install_check)
set(prefix ${place}/moved)
file(REMOVE_RECURSE ${place})

function(run)
  execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY OUTPUT_VARIABLE out)
  set(out "${out}" PARENT_SCOPE)
endfunction()

function(expect text)
  if(NOT out STREQUAL text)
    message(FATAL_ERROR "expected\n${text}\nfound\n${out}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${place}/first)
file(RENAME ${place}/first ${prefix})

# Wherever the library is laid, it stands behind its version.
file(GLOB_RECURSE library ${prefix}/libqz.so.10063)
get_filename_component(libraries "${library}" DIRECTORY)
file(READ_SYMLINK ${libraries}/libqz.so link)
if(NOT link STREQUAL "libqz.so.10063")
  message(FATAL_ERROR "libqz.so leads to ${link}")
endif()

set(c_result "10063 1\n7: no graph loaded\n")
set(cpp_result "9 vertices, 12 edges\nno model loaded\n")
run(${CMAKE_COMMAND} -S ${SOURCE}/tests/install/outside -B ${place}/outside
    -D CMAKE_PREFIX_PATH=${prefix} -D CALLERS=${SOURCE}/tests/install)
run(${CMAKE_COMMAND} --build ${place}/outside)
run(${place}/outside/c_caller)
expect("${c_result}")
run(${place}/outside/cpp_caller)
expect("${cpp_result}")

set(ENV{PKG_CONFIG_PATH} ${libraries}/pkgconfig)
run(pkg-config --modversion qz)
expect("1.0.63\n")
run(pkg-config --cflags --libs qz)
string(STRIP "${out}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(cc -std=c11 -Wall -Wextra -pedantic -Werror ${SOURCE}/tests/install/c_caller.c ${flags}
    -Wl,-rpath,${libraries} -o ${place}/c_caller)
run(${place}/c_caller)
expect("${c_result}")

# What the README says of a C caller.
file(READ ${SOURCE}/README.md readme)
string(REGEX MATCH "```c\n([^`]*)```" ignored "${readme}")
file(WRITE ${place}/readme/caller.c "${CMAKE_MATCH_1}")
string(REGEX MATCH "```cmake\n([^`]*)```" ignored "${readme}")
file(WRITE ${place}/readme/CMakeLists.txt
     "cmake_minimum_required(VERSION 3.25)\nproject(readme LANGUAGES C)\n${CMAKE_MATCH_1}")
string(REGEX MATCH "and prints `([^`]*)`" ignored "${readme}")
set(readme_result "${CMAKE_MATCH_1}\n")
string(REGEX MATCH "```sh\n([^`]*)```" ignored "${readme}")
string(REPLACE "$HOME/qz/lib" "${libraries}" commands "${CMAKE_MATCH_1}")
file(CREATE_LINK ${SOURCE}/examples ${place}/readme/examples SYMBOLIC)
run(sh -c "cd ${place}/readme && ${commands}")
expect("${readme_result}")
run(${CMAKE_COMMAND} -S ${place}/readme -B ${place}/readme/build -D CMAKE_PREFIX_PATH=${prefix})
run(${CMAKE_COMMAND} --build ${place}/readme/build)
run(sh -c "cd ${place}/readme && build/caller")
expect("${readme_result}")

# The installed tool finds the library beside it.
file(WRITE ${place}/sum.qz "GP0 2\nGP1 3\nADD GP0 GP1;\n")
run(${prefix}/bin/qz run ${place}/sum.qz --print GP0)
if(NOT out MATCHES "^GP0 +5")
  message(FATAL_ERROR "the installed tool printed ${out}")
endif()
