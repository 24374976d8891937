# Installs BUILD_FOLDER, builds the C++ example from what is installed and runs it on a plant of the installed tool.
# EXAMPLES, TOOL and CLASSES, where the installation registers the component, are places below the prefix.
set(folder ${BUILD_FOLDER}/package_test)
file(REMOVE_RECURSE ${folder})
set(plant ${folder}/plant.db)

function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_FOLDER} --prefix ${folder}/usr)
run(${CMAKE_COMMAND} -S ${folder}/usr/${EXAMPLES} -B ${folder}/build -G Ninja
    -DCMAKE_PREFIX_PATH=${folder}/usr -DCMAKE_CXX_COMPILER=${CXX})
run(${CMAKE_COMMAND} --build ${folder}/build)
run(${folder}/usr/${TOOL} create ${plant} --demo)
# Not by `run`, which would take the text apart at its semicolon.
set(ENV{KXDATA7_CLASSES} ${folder}/usr/${CLASSES})
execute_process(COMMAND ${folder}/build/monitor "Provider=SQLite;Data Source=${plant}"
                COMMAND_ERROR_IS_FATAL ANY)
