# cmake -DOUTPUT=FILE -DGZIP=PROGRAM -P EmbedAssets.cmake ASSET...
# Writes a source file that holds the page's assets, plain and compressed. Each is named after its
# content, so that browsers may keep it for ever; what names another asset ("./other.js") comes
# behind it in the list.
set(assets "")
set(past_script FALSE)
math(EXPR last "${CMAKE_ARGC} - 1")
foreach(i RANGE ${last})
  if(past_script)
    list(APPEND assets "${CMAKE_ARGV${i}}")
  elseif("${CMAKE_ARGV${i}}" STREQUAL "--")
    set(past_script TRUE)
  endif()
endforeach()

set(types_css "text/css; charset=utf-8")
set(types_html "text/html; charset=utf-8")
set(types_js "text/javascript; charset=utf-8")
set(types_svg "image/svg+xml")

# bytes(FILE VARIABLE): the file as the elements of an array.
function(bytes file variable)
  file(READ ${file} hex HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," list "${hex}")
  set(${variable} "${list}" PARENT_SCOPE)
endfunction()

get_filename_component(folder ${OUTPUT} DIRECTORY)
file(MAKE_DIRECTORY ${folder}/assets)
set(arrays "")
set(table "")
set(number 0)
set(replacements "")
foreach(asset ${assets})
  cmake_path(GET asset FILENAME name)
  cmake_path(GET asset EXTENSION LAST_ONLY extension)
  string(SUBSTRING ${extension} 1 -1 extension)
  set(copy ${folder}/assets/${name})
  # Only texts: a list's separator or a bracket in them would not survive being a CMake variable.
  execute_process(COMMAND sed ${replacements} -e "/^\\/\\/# sourceMappingURL/d" ${asset}
    OUTPUT_FILE ${copy} COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${GZIP} -9nc ${copy} OUTPUT_FILE ${copy}.gz COMMAND_ERROR_IS_FATAL ANY)
  file(SHA256 ${copy} hash)
  string(SUBSTRING ${hash} 0 12 hash)
  string(REGEX REPLACE "\\.${extension}$" ".${hash}.${extension}" hashed ${name})
  if(extension STREQUAL "html")
    set(path ${name})
  else()
    set(path "/assets/${hashed}")
  endif()
  string(REPLACE "." "\\." pattern ${name})
  list(APPEND replacements -e "s|\\./${pattern}|/assets/${hashed}|g")
  bytes(${copy} plain)
  bytes(${copy}.gz gzip)
  string(APPEND arrays "constexpr unsigned char kPlain${number}[] = {${plain}};\n"
                       "constexpr unsigned char kGzip${number}[] = {${gzip}};\n")
  string(APPEND table "    {\"${path}\", \"${types_${extension}}\", {kPlain${number}}, {kGzip${number}}},\n")
  math(EXPR number "${number} + 1")
endforeach()

file(WRITE ${OUTPUT} "#include \"gateway/Assets.hpp\"

namespace gateway {
namespace {

${arrays}
constexpr Asset kAssets[] = {
${table}};

} // namespace

std::span<const Asset> assets() {
    return kAssets;
}

} // namespace gateway
")
