# Writes a C++ source that holds files as bytes. Called with -P:
#   OUTPUT  the source to write
#   FILES   PATH=FILE for each, separated by "|": what it is asked for as, and where it is
set(types_css "text/css; charset=utf-8")
set(types_html "text/html; charset=utf-8")
set(types_js "text/javascript; charset=utf-8")
set(types_svg "image/svg+xml")
set(types_txt "text/plain; charset=utf-8")

set(arrays "")
set(entries "")
set(number 0)
string(REPLACE "|" ";" files "${FILES}")
foreach(pair IN LISTS files)
    string(REGEX MATCH "^([^=]*)=(.*)$" matched "${pair}")
    set(path "${CMAKE_MATCH_1}")
    set(file "${CMAKE_MATCH_2}")
    get_filename_component(ending "${path}" LAST_EXT)
    string(SUBSTRING "${ending}" 1 -1 ending)
    file(READ "${file}" bytes HEX)
    file(SHA256 "${file}" digest)
    string(SUBSTRING "${digest}" 0 16 digest)
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
    string(APPEND arrays "constexpr unsigned char FILE_${number}[] = {${bytes}};\n")
    string(APPEND entries "    {\"${path}\", \"${types_${ending}}\", \"\\\"${digest}\\\"\",\n"
                          "     FILE_${number}, sizeof(FILE_${number})},\n")
    math(EXPR number "${number} + 1")
endforeach()
file(
    WRITE "${OUTPUT}"
    "#include \"web/page_files.h\"

namespace corvane::program {

namespace {

${arrays}
constexpr PageFile FILES[] = {
${entries}};

}  // namespace

const PageFile* FindPageFile(std::string_view path) {
    for (const PageFile& file : FILES) {
        if (file.path == path) {
            return &file;
        }
    }
    return nullptr;
}

}  // namespace corvane::program
")
