# The engine that plug-ins are built against: KubDmEngine::dmnative, and beside it KubDmEngine::aplog,
# the log, and KubDmEngine::kubappbase, the settings files, which alone needs Qt.
find_package(Qt6 6.4 QUIET COMPONENTS Core)
include(${CMAKE_CURRENT_LIST_DIR}/KubDmEngineTargets.cmake)
