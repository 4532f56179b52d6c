# Picks the names that platform/ declares itself where the host system does not bring them, and lists them as
# macro calls:
#
#   KEST_HEADER(path)          the names that follow are of this header
#   KEST_CONSTANT(NAME)        a constant, an enumerator, an identifier
#   KEST_TYPE(Type)            an alias, an enumeration
#   KEST_RECORD(Record)        a structure of data
#   KEST_FIELD(Record, field)
#   KEST_INTERFACE(Interface)  a structure of methods
#   KEST_BASE(Interface, Base)
#   KEST_METHOD(Interface, Method)
#
# awk -v list=FILE -v includes=FILE -f PickNames.awk headers...   writes the list, and the includes of the headers
# that are in it.
#
# It reads what stands between "#else" (or "#ifndef _WIN32") and "#endif" of a condition on _WIN32, outside namespace
# kest. A declaration there that it does not understand ends it with an error, so that none stays unlisted. Left out
# on purpose are forward declarations and functions, which have no layout and no value.

function fail(what) {
    printf "%s: PickNames.awk: %s\n", header, what > "/dev/stderr"
    failed = 1
    exit 1
}

function add(kind, names) {
    entries[header] = entries[header] "KEST_" kind "(" names ")\n"
}

# The text up to and including the brace that closes the first one of `text`.
function braced(text,    i, depth, c) {
    for (i = 1; i <= length(text); ++i) {
        c = substr(text, i, 1)
        if (c == "{") ++depth
        if (c == "}" && --depth == 0) return substr(text, 1, i)
    }
    fail("no end of: " substr(text, 1, 60))
}

function trimmed(text) {
    gsub(/^ +| +$/, "", text)
    return text
}

# What stands between the outermost braces.
function inner(text) {
    sub(/^[^{]*\{/, "", text)
    sub(/\}[^}]*$/, "", text)
    return text
}

# Enumerators, each with or without a value.
function pick_enumeration(text,    parts, n, i) {
    n = split(inner(text), parts, ",")
    for (i = 1; i <= n; ++i) {
        sub(/=.*/, "", parts[i])
        parts[i] = trimmed(parts[i])
        if (parts[i] == "" && i == n) continue
        if (parts[i] !~ /^[A-Za-z_][A-Za-z0-9_]*$/) fail("not an enumerator: " parts[i])
        add("CONSTANT", parts[i])
    }
}

# Data members, also those of a union without a name.
function pick_fields(record, text,    parts, n, i, part) {
    n = split(inner(text), parts, ";")
    for (i = 1; i < n; ++i) {
        part = trimmed(parts[i])
        if (part ~ /^friend bool operator==\(.*\) = default$/) continue
        sub(/^union *\{ */, "", part)
        sub(/^\} */, "", part)
        if (part == "") continue
        if (part !~ /^[A-Za-z_][A-Za-z0-9_:]*[ *]+[A-Za-z_][A-Za-z0-9_]*(\[[0-9]+\])*$/) fail("not a field: " part)
        sub(/(\[[0-9]+\])*$/, "", part)
        sub(/^.*[ *]/, "", part)
        add("FIELD", record ", " part)
    }
    if (trimmed(parts[n]) !~ /^\}?$/) fail("not a field: " parts[n])
}

# Methods without a body, in their order.
function pick_methods(interface, text,    parts, n, i, part) {
    n = split(inner(text), parts, ";")
    for (i = 1; i < n; ++i) {
        part = trimmed(parts[i])
        if (part == "protected: ~" interface "() = default") continue
        if (part !~ /^virtual [A-Za-z_][A-Za-z0-9_]*[ *]+STDMETHODCALLTYPE [A-Za-z_][A-Za-z0-9_]*\([^()]*\) = 0$/) {
            fail("not a method: " part)
        }
        sub(/\(.*/, "", part)
        sub(/^.* /, "", part)
        add("METHOD", interface ", " part)
    }
    if (trimmed(parts[n]) != "") fail("not a method: " parts[n])
}

function pick_structure(text,    name, base) {
    name = text
    sub(/^struct /, "", name)
    sub(/[ {].*/, "", name)
    if (text ~ /^struct [A-Za-z0-9_]+ : /) {
        base = text
        sub(/^[^:]*: /, "", base)
        sub(/ *\{.*/, "", base)
        if (base !~ /^[A-Za-z_][A-Za-z0-9_]*$/) fail("not a base: " base)
    }
    if (base != "" || text ~ /virtual /) {
        add("INTERFACE", name)
        if (base != "") add("BASE", name ", " base)
        pick_methods(name, text)
    } else {
        add("RECORD", name)
        pick_fields(name, text)
    }
}

# Takes the declarations of a header, one after another.
function pick(text,    part, name) {
    gsub(/\/\*[^*]*\*\//, " ", text)
    gsub(/[ \t\n]+/, " ", text)
    if (text ~ /(^|[^A-Za-z0-9_])long([^A-Za-z0-9_]|$)/) fail("a long has another size on Windows")
    while ((text = trimmed(text)) != "") {
        part = text
        if (text ~ /^(struct|enum) [A-Za-z_][A-Za-z0-9_]*( : [^{;]*)? *\{/) {
            part = braced(text)
            if (trimmed(substr(text, length(part) + 1)) !~ /^;/) fail("no end of: " substr(text, 1, 60))
            text = substr(text, length(part) + 1)
            sub(/^ *;/, "", text)
            if (part ~ /^struct/) {
                pick_structure(part)
            } else {
                name = part
                sub(/^enum /, "", name)
                sub(/[ :{].*/, "", name)
                add("TYPE", name)
                pick_enumeration(part)
            }
            continue
        }
        if (text ~ /^(constexpr |inline )?[A-Za-z_][A-Za-z0-9_]*[ *]+[A-Za-z_][A-Za-z0-9_]*\([^()]*\) *\{/) {
            text = substr(text, length(braced(text)) + 1)
            continue
        }
        sub(/;.*/, "", part)
        text = substr(text, length(part) + 2)
        if (part ~ /^(struct|class|union) [A-Za-z_][A-Za-z0-9_]*$/) {
            continue
        } else if (part ~ /^[A-Za-z_][A-Za-z0-9_]*[ *]+[A-Za-z_][A-Za-z0-9_]*\([^()]*\)$/) {
            continue
        } else if (part ~ /^using [A-Za-z_][A-Za-z0-9_]* = [^()]*$/) {
            split(part, words, " ")
            add("TYPE", words[2])
        } else if (part ~ /^constexpr [A-Za-z_][A-Za-z0-9_]* [A-Za-z_][A-Za-z0-9_]* = [^;]*$/) {
            split(part, words, " ")
            add("CONSTANT", words[3])
            while (gsub(/\{[^{}]*\}/, "", part)) continue
            if (part ~ /,/) fail("more than one constant: " part)
        } else {
            fail("not understood: " substr(part, 1, 100))
        }
    }
}

# Inside a condition whose other side is Windows alone.
function is_portable(level,    i, found) {
    for (i = 1; i <= level; ++i) {
        if (state[i] == "windows") return 0
        if (state[i] == "portable") found = 1
    }
    return found
}

# Called before the first line of a header and at the end.
function finish_header() {
    if (header == "") return
    if (depth != 0) fail("a condition has no end")
    if (kest) fail("namespace kest has no end")
    pick(declarations)
    declarations = ""
}

FNR == 1 {
    finish_header()
    header = FILENAME
    headers[++header_count] = header
}

{ sub(/\r$/, "") }

/^namespace kest \{/ { kest = 1 }
/^}  \/\/ namespace kest$/ { kest = 0; next }

{ sub(/[ \t]*\/\/.*/, "") }

# state[depth]: "windows" and "portable" are the two sides of a condition on _WIN32, "other" is any other condition.
/^#if/ {
    ++depth
    state[depth] = "other"
    if ($0 ~ /^#ifdef _WIN32$/) state[depth] = "windows"
    else if ($0 ~ /^#ifndef _WIN32$/) state[depth] = "portable"
    else if ($0 ~ /_WIN32/) fail("not understood: " $0)
    else if (is_portable(depth - 1) && !kest) fail("a condition among the declarations: " $0)
    next
}
/^#el/ {
    if (state[depth] != "other" && $0 !~ /^#else$/) fail("not understood: " $0)
    if (state[depth] == "windows") state[depth] = "portable"
    else if (state[depth] == "portable") state[depth] = "windows"
    next
}
/^#endif/ { --depth; next }

kest || !is_portable(depth) { next }

/^#(include|pragma pack)/ { next }
/^#define STDMETHODCALLTYPE$/ { next }
/^[ \t]*#/ { fail("not understood: " $0) }

{ declarations = declarations $0 "\n" }

END {
    if (failed) exit 1
    finish_header()
    if (failed) exit 1
    printf "" > list
    printf "" > includes
    for (i = 1; i <= header_count; ++i) {
        if (entries[headers[i]] == "") continue
        printf "KEST_HEADER(%s)\n%s", "\"" headers[i] "\"", entries[headers[i]] > list
        printf "#include \"%s\"\n", headers[i] > includes
    }
    if (close(list) != 0 || close(includes) != 0) exit 1
}
