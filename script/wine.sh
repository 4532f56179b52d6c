# A Wine of a script's own, which asks nobody, with a display that nobody sees. Sourced, not run.

# Starts both; without the package of the display there is none, and has_display says so.
start_wine() { # folder of the logs
    wine_folder=$(mktemp -d)
    wine_display=
    trap end_wine EXIT
    mkdir "$wine_folder/prefix"
    if need_packages xvfb fonts-wine; then start_display "$1"; fi
    under_wine 180 wineboot --init >"$1/wineboot.log" 2>&1 || {
        tail -n 40 "$1/wineboot.log"
        echo "wine does not start" >&2
        exit 1
    }
    # The dialogs' font. The next process to start finds it.
    if has_display; then
        cp /usr/share/wine/fonts/* "$wine_folder/prefix/drive_c/windows/Fonts"
        under_wine 30 wineserver -k || true
    fi
}

has_display() { [ -n "$wine_display" ]; }

# Starts a display on a number that is free, for this machine's programs alone.
start_display() { # folder of the log
    Xvfb -displayfd 3 -nolisten tcp -screen 0 1024x768x24 3>"$wine_folder/display" >"$1/display.log" 2>&1 &
    wine_display_process=$!
    for _ in {1..100}; do
        [ ! -s "$wine_folder/display" ] || break
        sleep 0.1
    done
    wine_display=:$(cat "$wine_folder/display")
    [ "$wine_display" != : ] || {
        echo "the display does not start: $1/display.log" >&2
        exit 1
    }
}

# Runs a command with the Wine of this run, whose files and whose server's are all in one folder.
under_wine() { # seconds, command...
    env -u WAYLAND_DISPLAY DISPLAY="$wine_display" WINEPREFIX="$wine_folder/prefix" TMPDIR="$wine_folder" \
        WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" timeout -k 10 "$@" </dev/null
}

end_wine() {
    trap - EXIT
    under_wine 30 wineserver -k || true  # fails when none runs
    if has_display; then kill "$wine_display_process" || true; fi
    rm -rf "$wine_folder"
}
