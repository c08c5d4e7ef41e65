# Boost.Log 1.74 and what it needs of Boost.Thread, Filesystem and Atomic, as one library: program and plug-in then
# share one logging core.

set(kx_boost "${KX_WINDOWS_SOURCES}/boost/libs")

set(kx_boost_log
  attribute_name attribute_set attribute_value_set code_conversion core date_time_format_parser default_attribute_names
  default_sink dump event exceptions format_parser global_logger_storage named_scope named_scope_format_parser once_block
  permissions process_id process_name record_ostream severity_level spirit_encoding text_file_backend
  text_multifile_backend text_ostream_backend thread_id thread_specific threadsafe_queue timer timestamp trivial
  windows/debug_output_backend windows/light_rw_mutex)
list(TRANSFORM kx_boost_log PREPEND "${kx_boost}/log/src/")
set(kx_boost_thread future win32/thread win32/thread_primitives win32/tss_dll win32/tss_pe)
list(TRANSFORM kx_boost_thread PREPEND "${kx_boost}/thread/src/")
set(kx_boost_filesystem
  codecvt_error_category directory exception operations path path_traits portability unique_path utf8_codecvt_facet
  windows_file_codecvt)
list(TRANSFORM kx_boost_filesystem PREPEND "${kx_boost}/filesystem/src/")
set(kx_boost_atomic "${kx_boost}/atomic/src/lock_pool" "${kx_boost}/atomic/src/wait_ops_windows")
set(kx_boost_sources ${kx_boost_log} ${kx_boost_thread} ${kx_boost_filesystem} ${kx_boost_atomic})
list(TRANSFORM kx_boost_sources APPEND .cpp)

add_library(kx_boost_log SHARED ${kx_boost_sources})
add_library(Boost::log ALIAS kx_boost_log)
target_include_directories(kx_boost_log PRIVATE
  "${kx_boost}/log/src" "${kx_boost}/atomic/src" "${kx_boost}/filesystem/src")
# These are part of the library's binary interface, so its users have to see the same.
target_compile_definitions(kx_boost_log
  PUBLIC
    BOOST_LOG_WITHOUT_EVENT_LOG BOOST_LOG_WITHOUT_IPC BOOST_LOG_WITHOUT_SYSLOG BOOST_THREAD_DONT_USE_CHRONO=1
  INTERFACE
    BOOST_LOG_DYN_LINK BOOST_THREAD_USE_DLL BOOST_FILESYSTEM_DYN_LINK BOOST_ATOMIC_DYN_LINK
  PRIVATE
    BOOST_LOG_BUILDING_THE_LIB=1 BOOST_LOG_DLL BOOST_THREAD_BUILD_DLL BOOST_FILESYSTEM_DYN_LINK
    BOOST_FILESYSTEM_SOURCE BOOST_ATOMIC_DYN_LINK BOOST_ATOMIC_SOURCE BOOST_SPIRIT_USE_PHOENIX_V3=1
    __STDC_CONSTANT_MACROS)
target_compile_options(kx_boost_log PRIVATE -w -fno-strict-aliasing -ftemplate-depth=1024)
target_link_libraries(kx_boost_log PUBLIC Boost::headers PRIVATE ws2_32 mswsock advapi32 bcrypt synchronization)
install(TARGETS kx_boost_log EXPORT KxStorageTargets)
