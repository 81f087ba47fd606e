# cmake -DDEFINITION=FILE -DNAME=DLL -P name_library.cmake: the definition file that the linker wrote names no DLL, so
# the name is put on top.
file(READ "${DEFINITION}" exports)
file(WRITE "${DEFINITION}" "LIBRARY \"${NAME}\"\n${exports}")
