# tamrel_join(<target> <what>...): the compiler reads several sources of the target as one where TAMREL_JOIN names one of
# <what>: TESTS and TOOLS are eight sources of a folder at a time, SOURCES is all of a folder. Most of what a source costs is
# headers, and the library templates that it instantiates anew: four tests as one take two thirds of their time and eight
# four fifths of that, the eleven sources of tools/export under the sanitizers a third. The presets debug, coverage, fuzz and
# arm64 join nothing, and so does the package: each source compiles alone, too.
function(tamrel_join target)
    get_target_property(sources ${target} SOURCES)
    list(LENGTH sources count)
    set(at_a_time)
    foreach(what IN LISTS ARGN)
        if(what IN_LIST TAMREL_JOIN)
            set(at_a_time 8)  # what is being written is soon compiled
        endif()
    endforeach()
    if(count EQUAL 1 OR NOT at_a_time)
        return()
    endif()
    if("SOURCES" IN_LIST ARGN AND "SOURCES" IN_LIST TAMREL_JOIN)
        set(at_a_time ${count})
    endif()

    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
    # A test is a class of its own, whose fixture is in an unnamed namespace.
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
    list(FILTER sources INCLUDE REGEX "^[a-z].*[.]cpp$")  # no generated ones, no objects
    foreach(source IN LISTS sources)
        get_filename_component(folder ${source} DIRECTORY)
        if(NOT DEFINED "joined_${folder}")
            set("joined_${folder}" 0)
        endif()
        math(EXPR group "${joined_${folder}} / ${at_a_time}")
        math(EXPR "joined_${folder}" "${joined_${folder}} + 1")
        set_source_files_properties(${source} PROPERTIES UNITY_GROUP "joined_${folder}_${group}")
    endforeach()
endfunction()
