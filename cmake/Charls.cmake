# CharLS as Debian packages it: a header folder and a library, found without its own CMake files.
find_path(CHARLS_INCLUDE_DIR charls/charls.h REQUIRED)
find_library(CHARLS_LIBRARY NAMES charls REQUIRED)
add_library(Charls::charls INTERFACE IMPORTED)
set_target_properties(Charls::charls PROPERTIES
  INTERFACE_INCLUDE_DIRECTORIES "${CHARLS_INCLUDE_DIR}"
  INTERFACE_LINK_LIBRARIES "${CHARLS_LIBRARY}")
