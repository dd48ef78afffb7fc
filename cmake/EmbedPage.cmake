# Writes OUTPUT, which holds the files of the page: cmake -D OUTPUT=... -D "FILES=NAME=PATH;..." -P EmbedPage.cmake

set(arrays "")
set(entries "")
set(number 0)
foreach(file IN LISTS FILES)
    string(FIND "${file}" "=" at)
    string(SUBSTRING "${file}" 0 ${at} name)
    math(EXPR at "${at} + 1")
    string(SUBSTRING "${file}" ${at} -1 path)
    file(READ "${path}" bytes HEX)
    string(LENGTH "${bytes}" digits)
    math(EXPR size "${digits} / 2")
    string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
    string(APPEND arrays "const unsigned char file${number}[] = {${bytes}0};\n")
    string(APPEND entries "        {\"${name}\", file${number}, ${size}},\n")
    math(EXPR number "${number} + 1")
endforeach()
file(WRITE "${OUTPUT}.new" "#include \"tools/qxhost/studio/server/PageFiles.h\"

namespace Qx::Program::Studio {

namespace {

${arrays}
} // namespace

const std::vector<EmbeddedFile>& embeddedFiles()
{
    static const std::vector<EmbeddedFile> files{
${entries}    };
    return files;
}

} // namespace Qx::Program::Studio
")
file(RENAME "${OUTPUT}.new" "${OUTPUT}")
