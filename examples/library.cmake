# The library an example links, VDI_LIBRARY: the target of the tree the example is built in, or
# the installed package, vdidesktopgrpc (Qt 5) or vdidesktopgrpc-qt6 (-DVDI_QT_MAJOR_VERSION=6).
if(TARGET vdidesktopgrpc)
    set(VDI_LIBRARY vdidesktopgrpc)
else()
    set(VDI_QT_MAJOR_VERSION 5 CACHE STRING "Qt of the installed library: 5 or 6")
    if(VDI_QT_MAJOR_VERSION STREQUAL "6")
        find_package(vdidesktopgrpc-qt6 1.0 REQUIRED)
    else()
        find_package(vdidesktopgrpc 1.0 REQUIRED)
    endif()
    set(VDI_LIBRARY vdidesktopgrpc::vdidesktopgrpc)
endif()
