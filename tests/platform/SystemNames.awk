# Lists the names of the system that the headers of platform/api/ declare where there is no Windows, for
# SystemNamesTest.cpp. It reads the headers preprocessed (-E -dD), declaration by declaration. Left out is what the
# first two rules of take() match; what is no declaration of one name stops the compiler in the list.
#
# It writes Declarations.inc: what it has read, and aliases of types (type_NAME), members (member_CLASS_NAME) and
# constants (value_NAME), since Windows has macros by some of the names; and Checks.inc: KEST_TWIN(class or enumeration)
# before any use of it, KEST_TYPE(type), KEST_BASE(class, base), KEST_MEMBER(class, member), KEST_VALUE(constant).

function add(kind, name, alias) {
    checks = checks "KEST_" kind "(" name ")\n"
    declarations = declarations (alias ? alias ";\n" : "")
}

# Takes a declaration up to its ";", "{" or "}". `scope` is the class or enumeration that it is in.
function take(text,    name, words, n, i) {
    name = text
    sub(/ *[=(;{[].*/, "", name)  # the value, parameters or bounds
    sub(/.*[^A-Za-z0-9_]/, "", name)
    if (skipped || text ~ /^namespace kest \{$|^constexpr [A-Za-z]+ [A-Z0-9_]+\([^()]*\) \{$/) {
        skipped += (text ~ /\{$/) - (text ~ /\}$/)  # the project's own, or the body of a function
    } else if (text ~ /^;$|^[a-z]+\*? [A-Za-z]+\([^()]*\);$|^(protected: ~|friend bool operator==)[A-Za-z]*\([^()]*\) = default;$/) {
        return  # the end of a class; a function
    } else if (text ~ /^(struct|enum) [A-Za-z0-9_]+( : [A-Za-z0-9_]+)? ?[{;]$/) {
        split(text, words, /[ ;]/)
        add("TWIN", words[2])
        if (text ~ /;$/) return
        add("TYPE", words[2], "using type_" words[2] " = " words[2])
        if (words[3] == ":") add("BASE", words[2] ", " words[4])
        scope = words[2]
        in_enum = words[1] == "enum"
        depth = 1
    } else if (in_enum) {
        in_enum = scope = ""
        gsub(/ = [^,}]*/, "", text)
        n = split(text, words, /[ ,}]+/)
        for (i = 1; i < n; ++i) take("constexpr DWORD " words[i] ";")
    } else if (text ~ /^union \{$|^\}$/) {
        if (!(depth += text == "}" ? -1 : 1)) scope = ""
    } else if (text ~ /^using /) {
        add("TYPE", name, "using type_" name " = " name)
    } else if (text ~ /^constexpr [^,]*;$/) {
        add("VALUE", name, "constexpr auto value_" name " = " name)
    } else if (text ~ /^virtual [^()]*\([^()]*\) = 0;$|^[^(),]*;$/) {
        add("MEMBER", scope ", " name, "constexpr auto member_" scope "_" name " = &" scope "::" name)
    } else {
        checks = checks "#error not understood: " text "\n"
    }
}

/^# [0-9]+ "/ { ours = /platform\/api\// }
!ours || /^# |^#define STDMETHODCALLTYPE *$/ { next }
{ declarations = declarations $0 "\n" }
!/^#pragma pack/ { text = text " " $0 }

END {
    if (text ~ /[^A-Za-z0-9_]long[^A-Za-z0-9_]/) checks = "#error a long has another size elsewhere than on Windows\n"
    gsub(/ +/, " ", text)
    gsub(/ = \{[^;]*;/, ";", text)
    while (match(text, /[{};]/)) {
        declaration = substr(text, 1, RSTART)
        text = substr(text, RSTART + 1)
        gsub(/^ +| +$/, "", declaration)
        take(declaration)
    }
    if (text ~ /[^ ]/ || scope != "" || skipped || checks == "") checks = checks "#error no end of " scope text "\n"
    printf "%s", checks > "Checks.inc"
    printf "%s", declarations > "Declarations.inc"
}
