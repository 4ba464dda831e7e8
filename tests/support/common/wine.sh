# Sourced by the scripts that run Windows programs: where Wine is, and the prefixes (Windows installations) it works in.
# shellcheck shell=bash

wine_folder="$(cd "$(dirname "${BASH_SOURCE[0]}")/../../.." && pwd)/build/wine"
wine=/usr/lib/wine/wine64
wineserver=/usr/lib/wine/wineserver64
export WINEDEBUG="${WINEDEBUG:--all}"
export WINEDLLOVERRIDES="mscoree=;mshtml=;winedbg.exe=d;winemenubuilder.exe=d"
export WINEARCH=win64
unset WINEPREFIX

# Runs a program of Wine's own; one that does not end within two minutes has failed.
in_windows() {
    echo "> $*"
    env -u DISPLAY timeout --kill-after=10 120 "$wine" "$@" </dev/null
}

# Sets Windows up in the folder $WINEPREFIX.
set_up_prefix() {
    local value style
    in_windows wineboot -i || return
    # A Windows 10 of 2022: Wine knows that of 2019, and the program needs that of 2020.
    in_windows winecfg -v win10 || return
    for value in CurrentBuild CurrentBuildNumber; do
        in_windows reg add 'HKLM\Software\Microsoft\Windows NT\CurrentVersion' /v "$value" /d 19045 /f || return
    done
    # Without a window manager Wine would wait for one at every window that closes.
    in_windows reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f || return
    # A free font in the place of the status window's.
    for style in '' ' Semibold'; do
        in_windows reg add 'HKCU\Software\Wine\Fonts\Replacements' /v "Segoe UI$style" /d "Open Sans$style" /f || return
    done
    timeout --kill-after=10 120 "$wineserver" -w
}

# Makes the prefix that all others are copied from, unless it is there already: build/wine/ready. Wine gets three tries.
# Everything in it is a real folder (Wine makes links into the home folder), so nothing outside can be deleted from it.
make_ready_prefix() {
    local prefix="$wine_folder/ready"
    mkdir -p "$wine_folder"
    (
        flock 9
        # Another user's would not do: Wine would link its own user's folders to the home folder.
        if [ "$prefix/complete" -nt "${BASH_SOURCE[0]}" ] && [ -O "$prefix" ]; then exit 0; fi
        local new="$wine_folder/ready.new" try
        # What the unit tests share was copied from the last one.
        WINEPREFIX="$wine_folder/unit" "$wineserver" -k >/dev/null 2>&1 || true
        rm -rf "$prefix" "$wine_folder/unit"
        export WINEPREFIX="$new"
        for try in 1 2 3; do
            rm -rf "$new"
            if set_up_prefix >"$wine_folder/wineboot.log" 2>&1; then break; fi
            "$wineserver" -k >/dev/null 2>&1 || true
            echo "Wine did not set up its prefix (try $try of 3):"
            cat "$wine_folder/wineboot.log"
            [ "$try" != 3 ] || exit 1
        done >&2
        find "$new/drive_c/users" -type l | while IFS= read -r link; do
            rm "$link"
            mkdir "$link"
        done
        rm -f "$new/dosdevices/z:"
        touch "$new/complete"
        mv "$new" "$prefix"
    ) 9>"$wine_folder/lock"
    [ -e "$prefix/complete" ]
}

# copy_prefix NAME: makes build/wine/NAME from the ready prefix. Windows' own files are shared, all else is copied.
# It appears under its name when it is complete.
copy_prefix() {
    local copy="$wine_folder/$1.new"
    rm -rf "$copy" "${wine_folder:?}/$1"
    mkdir -p "$copy/drive_c"
    cp -a "$wine_folder/ready/"*.reg "$wine_folder/ready/dosdevices" "$copy/"
    [ ! -e "$wine_folder/ready/.update-timestamp" ] || cp -a "$wine_folder/ready/.update-timestamp" "$copy/"
    cp -al "$wine_folder/ready/drive_c/windows" "$copy/drive_c/"
    find "$wine_folder/ready/drive_c" -mindepth 1 -maxdepth 1 ! -name windows -exec cp -a {} "$copy/drive_c/" \;
    mv "$copy" "$wine_folder/$1"
}

# Makes the prefix that all unit tests share, unless it is there already: build/wine/unit.
make_unit_prefix() {
    make_ready_prefix
    (
        flock 9
        [ -e "$wine_folder/unit" ] || copy_prefix unit
    ) 9>"$wine_folder/unit.lock"
}

# run_in_prefix NAME PROGRAM ARGUMENT...: runs a Windows program and passes on its output and its exit code. With a limit
# (in seconds, $limit) it is ended then, and the exit code is that of timeout: 124, or 137 when it had to be killed.
# The output goes through a file: Wine's background processes keep a pipe open and the reader waiting.
run_in_prefix() {
    local prefix="$wine_folder/$1" output status=0
    local -a limited=()
    [ -z "${limit:-}" ] || limited=(timeout --kill-after=10 "$limit")
    shift
    output=$(mktemp)
    WINEPREFIX="$prefix" "${limited[@]}" "$wine" "$@" >"$output" 2>&1 </dev/null || status=$?
    cat "$output"
    rm -f "$output"
    return "$status"
}

# run_tests_in_prefix NAME PROGRAM ARGUMENT...: the same for a program made of GoogleTest's tests. One that fails before
# its first test was not started by Wine as it should be, which says nothing about any test: it gets a second try.
run_tests_in_prefix() {
    local said status=0
    said=$(run_in_prefix "$@") || status=$?
    printf '%s\n' "$said"
    if [ "$status" != 0 ] && ! grep -q '^\[====' <<<"$said"; then
        echo "Wine ended with $status before the first test: trying again."
        status=0
        run_in_prefix "$@" || status=$?
    fi
    return "$status"
}
