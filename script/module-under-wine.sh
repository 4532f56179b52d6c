# The module in the media graph of Wine, which this project did not write. Sourced by script/test, whose under_wine it
# runs in and whose summary it adds to.

module_streams=(tests/data/ps_mpeg2_packs.mpg tests/data/ps_mpeg2.mpg tests/data/ps_mpeg4.mpg)
module_file=build/windows/bin/KestDemux2Filter.dll
module_logs=build/windows/module_tests.logs  # what each step has printed

# Registers the module, has the host use it, and unregisters it.
test_module_under_wine() {
    rm -rf "$module_logs" && mkdir -p "$module_logs"
    cmake --preset debug >/dev/null
    cmake --build --preset debug --target kestdemux --parallel "$(nproc)" -- --quiet
    register_module
    module_case nostream tests/data/vob_mpeg2_nomap.mpg
    module_case nostream README.md
    compare_samples
    compare_trick_play
    compare_pushed
    module_case control "$module_logs/"
    module_case states "${module_streams[1]}"
    module_case starts "${module_streams[0]}"
    module_case merit "${module_streams[1]}"
    module_case decoder tests/data/ps_mpeg2_44100.mpg
    module_case decoder tests/data/ps_mpeg2.mpg TrueTypes  # 48 kHz and mono, which no type but its own announces
    local page="property page: skipped: there is no display"
    if has_display; then
        module_case page none
        page="property page $(report page)"
    fi
    register_module /u
    check_registry
    summary+=("module under wine: $module_samples samples as on Linux ($module_untimed early ones but for their times)," \
        "    $module_trick of trick play and $module_pushed of transport streams that are delivered as on Linux (each field)," \
        "    $(report starts), $(report merit), unregistered without a trace, $(report decoder)" "    $page")
}

register_module() { # option, if any
    under_wine 60 wine regsvr32 /s "$@" "$module_file" >"$module_logs/regsvr32.log" 2>&1 || module_failed regsvr32
}

# What registering adds to the registry is known, and unregistering removes it. The module has been registered before:
# the host itself writes what it needs for that the first time.
check_registry() {
    dump_registry "$module_logs/before"
    register_module
    dump_registry "$module_logs/registered"
    register_module /u
    dump_registry "$module_logs/after"
    local module added
    module=$(realpath "$module_file" | sed 's|/|\\\\\\\\|g; s|&|\\&|g')
    added=$({ diff "$module_logs/before" "$module_logs/registered" || true; } | sed -n '/HKEY_LOCAL_MACHINE/q; s/^> \(.\)/\1/p')
    {
        diff <(sed "/^;/d; /^$/d; s|@MODULE@|Z:$module|" tests/module/registered.reg) <(echo "$added") &&
            diff "$module_logs/before" "$module_logs/after"
    } >"$module_logs/registry.log" || module_failed registry
}

# Runs one case of the module's tests.
module_case() { # case, arguments...
    under_wine 120 wine build/windows/bin/module_tests.exe "$@" \
        >"$module_logs/$1.out" 2>"$module_logs/$1.log" || module_failed "$1"
}

# What a case has reported.
report() { # case
    cat "$module_logs/$1.out"
}

module_failed() { # what
    tail -n 40 "$module_logs/$1.log"
    echo "script/test: the module fails under wine: $1" >&2
    exit 1
}

# Writes the classes and the software of the machine as the registry has them, without the keys of devices, which the
# host adds at any time.
dump_registry() { # file
    local key
    : >"$1"
    for key in 'HKEY_CLASSES_ROOT' 'HKEY_LOCAL_MACHINE\Software'; do
        under_wine 60 wine regedit /E "$1.part" "$key" >/dev/null 2>&1
        iconv -f UTF-16 -t UTF-8 "$1.part" | tr -d '\r' |
            awk '/^\[/ { device = /\\(NetworkCards|MMDevices)[]\\]/ } !device' >>"$1"
        rm "$1.part"
    done
}

# What the program lists of the samples of a stream, pin after pin, with the filter as a host finds it.
list_natively() { # stream, options...
    build/debug/bin/kestdemux samples --plain --json "${@:2}" "$1" | grep '"event":"sample"' | sort -s -t, -k1,1
}

# Compares every sample of both pins, from the beginning and from seeks, with what the program lists.
compare_samples() {
    local stream seek begun out="$module_logs/samples"
    module_samples=0 module_untimed=0
    for stream in "${module_streams[@]}"; do
        for seek in "" 0.5 1.5; do
            list_natively "$stream" ${seek:+--seek "$seek"} >"$out.native"
            module_case samples "$stream" ${seek:+"$seek"}
            begun=$(count_early_video "$out.native" "$out.out")
            without_early_times "$begun" <"$out.native" >"$out.expected"
            without_early_times "$begun" <"$out.out" >"$out.found"
            diff "$out.expected" "$out.found" >"$out.log" || module_failed samples
            module_samples=$((module_samples + $(wc -l <"$out.found")))
            module_untimed=$((module_untimed + begun))
        done
    done
}

# Trick play has samples of the video alone, without times: every one in every field, and none behind the last.
compare_trick_play() {
    local where seek rate count stream=tests/data/ps_mpeg4.mpg out="$module_logs/samples"
    module_trick=0
    for where in "1 2.0" "8 -2.0" "2 0.5"; do
        read -r seek rate <<<"$where"
        list_natively "$stream" --seek "$seek" --rate "$rate" >"$out.native"
        count=$(wc -l <"$out.native")
        module_case samples "$stream" "$where $count"
        diff "$out.native" "$out.out" >"$out.log" || module_failed samples
        module_trick=$((module_trick + count))
    done
}

# Every sample of both pins, in every field. Two classes are left out: this host does not run before each renderer has a
# sample, but an elementary stream has no audio; and the times of an MPEG-1 system stream begin at what the clock shows.
compare_pushed() {
    local stream out="$module_logs/pushed"
    module_pushed=0
    for stream in tests/data/ts_mpeg2.ts tests/data/ts_mpeg4.ts; do
        list_natively "$stream" >"$out.native"
        module_case pushed "$stream"
        diff "$out.native" "$out.out" >"$out.log" || module_failed pushed
        module_pushed=$((module_pushed + $(wc -l <"$out.out")))
    done
}

# The video samples that come before the audio's beginning, which depends on threads: see "Time" in
# docs/architecture.md. The audio's beginning gives the next video sample a discontinuity; without such samples only the
# first one has it. A stream that begins later than its tenth sample is at fault.
count_early_video() { # files
    awk 'FNR == 1 { video = 0 }
        /"video"/ && ++video > 1 && video <= 10 && /"discontinuity":true/ && video > early { early = video }
        END { print early + 0 }' "$@"
}

# Removes the times and discontinuities of the first video samples.
without_early_times() { # how many samples
    awk -v early="$1" '/"video"/ && ++video <= early { gsub(/"(start|stop|discontinuity)":[^,]*,/, "") } { print }'
}
