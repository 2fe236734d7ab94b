# Run by cpack before it makes packages: an incomplete package must not look complete.
if(CPACK_SNIFFER_LACK)
  message(FATAL_ERROR "${CPACK_SNIFFER_LACK}")
endif()
