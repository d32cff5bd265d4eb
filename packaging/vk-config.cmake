# What find_package(vk) reads: the service library and what it is linked with.
include(CMakeFindDependencyMacro)
find_dependency(PkgConfig)
pkg_check_modules(PQ REQUIRED IMPORTED_TARGET libpq)
pkg_check_modules(PCRE2 REQUIRED IMPORTED_TARGET libpcre2-8)
pkg_check_modules(INIH REQUIRED IMPORTED_TARGET inih)
include(${CMAKE_CURRENT_LIST_DIR}/vk-targets.cmake)
