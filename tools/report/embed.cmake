# Writes OUTPUT, which defines what page_parts.h declares, from the files of FOLDER.
set(source "#include \"tools/report/page_parts.h\"\n\nnamespace report {\n")
foreach(part Html Css Js)
    string(TOLOWER "page.${part}" file)
    file(READ "${FOLDER}/${file}" text)
    string(REPLACE "\r\n" "\n" text "${text}")
    string(SHA256 checksum "${text}")
    string(HEX "${text}" bytes)
    string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
    string(REPLACE "0x0a," "0x0a,\n" bytes "${bytes}")
    string(APPEND source "static const unsigned char bytesOf${part}[] = {\n${bytes}};\n"
        "const PagePart page${part} = {bytesOf${part}, sizeof bytesOf${part}, \"${checksum}\"};\n")
endforeach()
file(WRITE "${OUTPUT}" "${source}}  // namespace report\n")
