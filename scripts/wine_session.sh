# To be sourced by bash scripts. One Wine session for many programs: its server stays up from ZoBeginWine to ZoEndWine,
# which saves each program the start of it, and it is taken down at the end of the script however that comes about.
# Temporary files of everything that runs meanwhile, Wine itself left out, go beside the prefix and leave with it.

zoScripts=$(realpath "$(dirname "${BASH_SOURCE[0]}")")
zoWinePrefix=

ZoWineServer() {
    local wineserver
    wineserver=$(command -v wineserver || echo /usr/lib/wine/wineserver64)
    env -u TMPDIR WINEPREFIX="$zoWinePrefix" WINEARCH=win64 "$wineserver" "$@" >/dev/null 2>&1
}

# ZoBeginWine PREFIX
ZoBeginWine() {
    zoWinePrefix=$(realpath -m "$1")
    trap ZoEndWine EXIT
    trap 'exit 130' INT TERM HUP
    mkdir -p "$zoWinePrefix.tmp"
    export TMPDIR=$zoWinePrefix.tmp
    [ -f "$zoWinePrefix/ready" ] || "$zoScripts/wine-run" "$zoWinePrefix" cmd /c exit  # makes the prefix
    ZoWineServer -k || true
    ZoWineServer -w || true
    ZoWineServer -p
    # The session's own processes must not be born of a program whose output somebody waits for the end of.
    "$zoScripts/wine-run" "$zoWinePrefix" wineboot </dev/null >/dev/null 2>&1
}

# Runs a Windows program in the session.
ZoWine() { "$zoScripts/wine-run" "$zoWinePrefix" "$@"; }

# Ends every program of the session and removes what its server keeps outside the prefix: a folder of sockets, whose
# name Debian's Wine writes into the prefix.
ZoEndWine() {
    [ -n "$zoWinePrefix" ] || return 0
    ZoWineServer -k || true
    ZoWineServer -w || true
    local sockets=
    [ -f "$zoWinePrefix/wineserver" ] && sockets=$(cat "$zoWinePrefix/wineserver")
    case "$sockets" in wine-??????) rm -rf "/tmp/$sockets" ;; esac
    rm -rf "$zoWinePrefix.tmp"
    zoWinePrefix=
}
