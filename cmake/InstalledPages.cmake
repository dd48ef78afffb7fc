# Runs when the documentation has been installed in the folder `pages`: what its pages link to lies elsewhere than in the
# sources.
file(GLOB files ${pages}/*.md)
foreach(file IN LISTS files)
    file(READ ${file} before)
    string(REPLACE "](../examples/" "](../libqxfxresources-dev/examples/" text "${before}")
    string(REPLACE "](../shaders/README.md" "](shipped-effects.md" text "${text}")
    string(REPLACE "](../docs/" "](" text "${text}")
    if(NOT text STREQUAL before)
        file(WRITE ${file} "${text}")
    endif()
endforeach()
