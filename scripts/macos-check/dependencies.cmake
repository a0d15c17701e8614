# Third-party headers for scripts/check-macos: nothing is linked, so their headers are all there is to find.
macro(qd_provide_headers method name)
  if(NOT TARGET qd_check_headers)
    add_library(qd_check_headers INTERFACE IMPORTED)
    target_include_directories(qd_check_headers SYSTEM INTERFACE ${QD_CHECK_HEADERS})
    # What an old Boost uses of C++11 and the current library has dropped.
    target_compile_definitions(qd_check_headers INTERFACE
      _LIBCPP_ENABLE_CXX17_REMOVED_UNARY_BINARY_FUNCTION _LIBCPP_ENABLE_CXX20_REMOVED_TYPE_TRAITS)
    foreach(library IN ITEMS Threads::Threads CURL::libcurl OpenSSL::Crypto OpenSSL::SSL
        Boost::filesystem Boost::headers nlohmann_json::nlohmann_json CLI11::CLI11 GTest::gtest GTest::gmock GTest::gtest_main)
      add_library(${library} INTERFACE IMPORTED)
      target_link_libraries(${library} INTERFACE qd_check_headers)
    endforeach()
  endif()
  set(${name}_FOUND TRUE)
endmacro()
cmake_language(SET_DEPENDENCY_PROVIDER qd_provide_headers SUPPORTED_METHODS FIND_PACKAGE)
