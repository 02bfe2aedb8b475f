# Shared by the build and by the installed package configuration, so that a
# consumer finds exactly the dependencies the library was built against.
if(NOT DEFINED ORLAVEX_FIND_DEPENDENCY)
  macro(ORLAVEX_FIND_DEPENDENCY)
    find_package(${ARGV} REQUIRED)
  endmacro()
endif()

orlavex_find_dependency(Qt5 COMPONENTS Core Gui Widgets Network WebEngineWidgets)
# Debian's VTK configuration refers to MPI's C bindings; it must be found
# first, and CMake looks for them only with C enabled. A C++-only project
# (project(app CXX)) gets C enabled here instead of a puzzling "language C is
# not enabled"; it needs the C compiler that the C++ one came with.
get_property(_orlavex_languages GLOBAL PROPERTY ENABLED_LANGUAGES)
if(NOT "C" IN_LIST _orlavex_languages)
  enable_language(C)
endif()
unset(_orlavex_languages)
orlavex_find_dependency(MPI COMPONENTS C)
orlavex_find_dependency(VTK COMPONENTS
  CommonCore CommonDataModel CommonExecutionModel
  FiltersCore FiltersSources
  RenderingCore RenderingOpenGL2 RenderingAnnotation RenderingFreeType
  InteractionStyle IOImport GUISupportQt)
orlavex_find_dependency(PkgConfig)
if(NOT TARGET PkgConfig::QWT)
  pkg_check_modules(QWT REQUIRED IMPORTED_TARGET GLOBAL Qt5Qwt6)
endif()

# The name a shared library is loaded by at run time (its SONAME): the
# development link libx.so points at it (libx.so.3.4), and it at the file.
function(orlavex_soname out library)
  get_filename_component(name ${library} NAME)
  if(IS_SYMLINK ${library})
    file(READ_SYMLINK ${library} target)
    get_filename_component(name ${target} NAME)
  endif()
  set(${out} ${name} PARENT_SCOPE)
endfunction()
