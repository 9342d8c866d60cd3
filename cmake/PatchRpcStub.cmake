# cmake -DSTUB=FILE -P PatchRpcStub.cmake: corrects a server stub that widl made.
#
# It lets the runtime allocate an [in, out] number with a range, `size`, for each call, which is never freed. 0x2000
# in the parameter's descriptor asks for 8 bytes that the runtime keeps for the call. Another widl may write something
# else: then somebody has to look, so each such parameter has to be found as it is known.
file(READ "${STUB}" text)
string(REGEX REPLACE "(\\(parameter size\\) \\*/[^\n]*\n *)NdrFcShort\\(0x11a\\)" "\\1NdrFcShort(0x211a)" patched "${text}")
string(REGEX MATCHALL "\\(parameter size\\)" parameters "${text}")
string(REGEX MATCHALL "\\(parameter size\\) \\*/[^\n]*\n *NdrFcShort\\(0x211a\\)" corrected "${patched}")
list(LENGTH parameters found)
list(LENGTH corrected done)
if(found EQUAL 0 OR NOT found EQUAL done)
  message(FATAL_ERROR "${STUB}: ${done} of ${found} descriptors of the parameter `size` are as they are known; "
    "look at what this widl makes of it before anything is served with it")
endif()
file(WRITE "${STUB}" "${patched}")
