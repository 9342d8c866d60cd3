# vlm_add_rpc_stubs(NAME X.idl): NAME_server_stub (objects) and NAME_client_stub (a library) from the interface's
# definition, with the header X_rpc.h for both. A client's functions have the prefix Client.
function(vlm_add_rpc_stubs name file)
  get_filename_component(base ${file} NAME_WE)
  set(idl ${CMAKE_CURRENT_SOURCE_DIR}/${file})
  set(out ${CMAKE_CURRENT_BINARY_DIR})
  set(stubs ${out}/${base}_rpc.h ${out}/${base}_client.c ${out}/${base}_server.c)
  if(MSVC)
    add_custom_command(OUTPUT ${stubs}
      COMMAND midl /nologo /env x64 /target NT60 /Oicf /robust /error all /app_config /prefix client Client
        /h ${base}_rpc.h /cstub ${base}_client.c /sstub ${base}_server.c /out ${out} ${idl}
      DEPENDS ${idl} VERBATIM)
  else()
    find_program(VLM_WIDL x86_64-w64-mingw32-widl REQUIRED)
    add_custom_command(OUTPUT ${stubs}
      COMMAND ${VLM_WIDL} -Oicf -h -c -s --prefix-client=Client
        -H ${out}/${base}_rpc.h -C ${out}/${base}_client.c -S ${out}/${base}_server.c ${idl}
      COMMAND ${CMAKE_COMMAND} -DSTUB=${out}/${base}_server.c -P ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/PatchRpcStub.cmake
      DEPENDS ${idl} ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/PatchRpcStub.cmake ${CMAKE_CURRENT_FUNCTION_LIST_FILE} VERBATIM)
  endif()
  # Not under our warnings: generated C is as its generator makes it.
  add_library(${name}_server_stub OBJECT ${out}/${base}_server.c)
  add_library(${name}_client_stub STATIC ${out}/${base}_client.c)
  target_include_directories(${name}_client_stub SYSTEM PUBLIC ${out})
  target_link_libraries(${name}_client_stub PUBLIC rpcrt4)
  # One generation for both, whichever is built first.
  add_custom_target(${name}_stubs DEPENDS ${out}/${base}_rpc.h)
  add_dependencies(${name}_server_stub ${name}_stubs)
  add_dependencies(${name}_client_stub ${name}_stubs)
endfunction()
