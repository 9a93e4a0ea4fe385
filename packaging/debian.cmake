# Debian packages: `./dev package`, which is cmake --preset package and cpack.
option(TAGBRIDGE_DEBIAN "Install where Debian's packages have their files" OFF)
set(TAGBRIDGE_MAINTAINER "tagbridge developers <developers@tagbridge.example.org>"
  CACHE STRING "who answers for the packages")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tagbridge)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime devel python command)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${TAGBRIDGE_MAINTAINER})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(version "${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")

# Describes the package of a component: name, section, one line, what it depends on besides
# libraries, and the paragraph.
function(debian_package component name section summary depends words)
  string(TOUPPER ${component} key)
  set(package CPACK_DEBIAN_${key}_PACKAGE)
  set(${package}_NAME ${name} PARENT_SCOPE)
  set(${package}_SECTION ${section} PARENT_SCOPE)
  set(${package}_DEPENDS ${depends} PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_DESCRIPTION "${summary}\n${words}" PARENT_SCOPE)
  if(TAGBRIDGE_DEBIAN)
    install(FILES ${CMAKE_CURRENT_SOURCE_DIR}/debian/copyright
        ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian.gz
      DESTINATION share/doc/${name} COMPONENT ${component})
  endif()
endfunction()

set(library libtagbridge-runtime${TAGBRIDGE_SOVERSION})
math(EXPR next_minor "${Python_VERSION_MINOR} + 1")
set(python_versions "python3 (>= 3.${Python_VERSION_MINOR}~), python3 (<< 3.${next_minor})")
set(about_operations
  "tagbridge opens TIFF files, walks their directories, and reads and\nwrites single tags, strips and tiles, with every argument checked\nagainst the layout of the file.")

debian_package(runtime ${library} libs "low-level access to TIFF files (library)" ""
  "${about_operations}\n.\nThis package has the plug-in and the host that programs embed.")
debian_package(devel libtagbridge-dev libdevel "low-level access to TIFF files (headers)"
  "${library} (= ${version}), libtiff-dev"
  "${about_operations}\n.\nThis package has what programs are compiled with, and the package\nfor CMake.")
debian_package(python python3-tagbridge python "low-level access to TIFF files (Python 3)"
  "${library} (= ${version}), ${python_versions}, python3-numpy (>= 1:1.24), python3-numpy-abi9"
  "${about_operations}\n.\nThis package has the files, images and tags of Python.")
debian_package(command tagbridge graphics "look at, convert, check and edit TIFF files"
  "python3:any, python3-tagbridge (>= ${version}), python3-pil, python3-tqdm"
  "${about_operations}\n.\nThis package has the command line: info, get, set, convert, export,\npreview, verify and diff.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
# For packages that depend on the library, and for the cache of the loader.
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/shlibs
  "libtagbridge_runtime ${TAGBRIDGE_SOVERSION} ${library} (>= ${PROJECT_VERSION})\n")
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_BINARY_DIR}/shlibs ${CMAKE_CURRENT_BINARY_DIR}/triggers)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS ON)
# The extension's own dependency on the library is the one above.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/python/tagbridge)
set(CPACK_DEBIAN_PYTHON_PACKAGE_RECOMMENDS "python3-pil, python3-tqdm")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_SOURCE_DIR}/debian/postinst ${CMAKE_CURRENT_SOURCE_DIR}/debian/prerm)
set(CPACK_DEBIAN_COMMAND_PACKAGE_ARCHITECTURE all)
include(CPack)

# The changelogs that Debian wants in each package.
if(TAGBRIDGE_DEBIAN)
  string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian
    "tagbridge (${version}) unstable; urgency=medium\n\n"
    "  * What changed is in changelog.gz.\n\n"
    " -- ${TAGBRIDGE_MAINTAINER}  ${date}\n")
  file(COPY_FILE ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${CMAKE_CURRENT_BINARY_DIR}/changelog)
  execute_process(COMMAND gzip -9nf changelog changelog.Debian
    WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR} COMMAND_ERROR_IS_FATAL ANY)
endif()
