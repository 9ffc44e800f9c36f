# Every dependency is a Debian package installed by scripts/setup.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(Qt6 6.4 REQUIRED COMPONENTS Core Network WebSockets)
# Cloud link flows as C++20 coroutines on the Qt event loop
find_package(QCoro6 REQUIRED COMPONENTS Core)
find_package(nlohmann_json 3.10 REQUIRED)
find_package(GTest REQUIRED)

pkg_check_modules(FFTW3F REQUIRED IMPORTED_TARGET fftw3f)
pkg_check_modules(JSC REQUIRED IMPORTED_TARGET javascriptcoregtk-4.1)
# Audio: PulseAudio client (devices, capture), libsndfile (--audio-file input, test signals)
pkg_check_modules(PULSE REQUIRED IMPORTED_TARGET GLOBAL libpulse)
pkg_check_modules(SNDFILE REQUIRED IMPORTED_TARGET GLOBAL sndfile)
