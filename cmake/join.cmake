# tamrel_join(<target> <what>): the compiler reads several sources of the target as one where TAMREL_JOIN names <what>: TESTS,
# four at a time, or SOURCES, all of a folder. Most of what a source costs is headers, and the library templates that it
# instantiates anew: four tests as one take two thirds of their time. The presets release and asan together show that each
# source of the product compiles alone, too, and debug, coverage, fuzz and arm64 do so for all.
function(tamrel_join target what)
    get_target_property(sources ${target} SOURCES)
    list(LENGTH sources count)
    if(count EQUAL 1 OR NOT what IN_LIST TAMREL_JOIN)
        return()
    endif()
    # Without -Wshadow (options.cmake): those after a source see what it includes, the "oid" of Net-SNMP for one.
    if(what STREQUAL "TESTS")
        # A test is a class of its own, whose fixture is in an unnamed namespace.
        target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
        # A few at a time: one that is being written is not compiled with all of its room.
        set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 4)
        return()
    endif()
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
    foreach(source IN LISTS sources)
        get_filename_component(folder "${source}" DIRECTORY)
        set_source_files_properties(${source} PROPERTIES UNITY_GROUP "joined_${folder}")
    endforeach()
endfunction()
