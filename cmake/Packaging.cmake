# `cpack -G DEB` in a build folder makes pagewright_VERSION_ARCH.deb of what `cmake --install`
# installs, below /usr. Its dependencies are read from the programs and modules by
# dpkg-shlibdeps (package dpkg-dev), so they follow the libraries the build linked.
# scripts/test-package.sh builds, checks and installs it.
set(CPACK_PACKAGE_NAME pagewright)
set(CPACK_PACKAGE_VENDOR Pagewright)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "find image, TIFF and PDF files and turn images into PDF documents")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Pagewright <${PAGEWRIGHT_SUPPORT}>")
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE ${PAGEWRIGHT_WEBSITE})
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Searchable PDFs need a language: English is offered, the others are the user's choice.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS tesseract-ocr-eng)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# The extended description; CPack puts the summary above it.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
  "Pagewright searches a folder tree for images, TIFF and PDF files by name
pattern, date and size, and lists them with their page counts. The checked
files become one PDF per image, one merged PDF in the order chosen, or a
parallel tree of PDFs made by a job that can be stopped and resumed.
.
The pagewright-batch command does the same from scripts, and also splits,
joins and renders PDF pages and moves TIFF pages between files.")
include(CPack)
