# Precompiles the headers that nearly every file includes, once for all modules (and once more, with GoogleTest, for all tests).
# Parsing them took a third of the time of a build. The clang preset switches the option off, so there every file must include
# the headers that it uses.
option(TARVIXUPDATE_PRECOMPILED_HEADERS "Precompile the headers that most files include" ON)
set(TARVIX_COMMON_HEADERS
  <QByteArray> <QCoreApplication> <QDateTime> <QDir> <QFile> <QFileInfo> <QHash> <QList> <QMutex> <QObject> <QPointer>
  <QString> <QStringList> <QThread> <QTimer> <QUrl> <QVariant> <QVariantMap>
  <algorithm> <atomic> <chrono> <functional> <memory> <mutex> <optional> <string> <thread> <vector>)

# tarvix_precompile(TARGET HEADERS...): makes a precompiled header that other targets with the same settings can use.
function(tarvix_precompile TARGET)
  if(TARVIXUPDATE_PRECOMPILED_HEADERS)
    target_precompile_headers(${TARGET} PRIVATE ${ARGN})
  endif()
endfunction()

# tarvix_use_precompiled(TARGET FROM): uses the one that FROM makes.
function(tarvix_use_precompiled TARGET FROM)
  if(TARVIXUPDATE_PRECOMPILED_HEADERS)
    target_precompile_headers(${TARGET} REUSE_FROM ${FROM})
    target_compile_options(${TARGET} PRIVATE -fPIC)   # as it was made; programs are -fPIE otherwise
  endif()
endfunction()

file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/precompiled.cpp CONTENT "")
add_library(tarvix_precompiled OBJECT ${CMAKE_CURRENT_BINARY_DIR}/precompiled.cpp)
set_target_properties(tarvix_precompiled PROPERTIES AUTOMOC OFF)
target_link_libraries(tarvix_precompiled PRIVATE tarvix_settings Qt6::Core)
tarvix_precompile(tarvix_precompiled ${TARVIX_COMMON_HEADERS})
