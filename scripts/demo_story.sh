# To be sourced by scripts/demo: how the story is told. Text goes out at a fixed width, commands are shown as a reader
# would type them, and what they print is set in.

if [ -t 1 ]; then bold=$'\e[1m' plain=$'\e[0m'; else bold= plain=; fi
chapter=0

# Say TEXT: a paragraph; line breaks and indentation of the script do not matter.
Say() {
    echo
    echo "$*" | tr -s ' \n' '  ' | fold -s -w 100 | sed 's/ *$//'
    echo
}

# Chapter TITLE TEXT
Chapter() {
    chapter=$((chapter + 1))
    echo
    echo "$bold== $chapter. $1$plain"
    Say "$2"
}

# Typed TEXT: a command line, a long one over several lines.
Typed() { fold -s -w 96 <<<"> $1" | sed "2,\$s/^/      /; s/.*/$bold&$plain/"; }

# Show TEXT COMMAND [ARGUMENT...]: shows TEXT as what is typed, runs the command, and sets in what it prints.
Show() {
    local shown=$1 status=0 expected=${expectedCode:-0}
    shift
    Typed "$shown"
    "$@" 2>&1 | tr -d '\r' | fold -s -w 96 | sed 's/ *$//; s/^/    /' || status=${PIPESTATUS[0]}
    [ "$status" -eq 0 ] || echo "    (exit code $status)"
    if [ "$status" -ne "$expected" ]; then
        echo "    The demo expected exit code $expected here."
        surprises=$((surprises + 1))
    fi
}
surprises=0

# Expecting CODE COMMAND...: for a command whose failure is part of the story.
Expecting() {
    local expectedCode=$1
    shift
    "$@"
}

# Zoctl ARGUMENT...: one command of the tool.
Zoctl() { Show "zoctl $*" ZoWine "$bin/zoctl.exe" "$@"; }

Simctl() { Show "simctl $*" ZoWine "$bin/simctl.exe" "$@"; }

# ShowSome LINES COMMAND...: like Show, with the first and the last lines of a long output.
ShowSome() {
    local lines=$1 shown=$2 whole
    shift 2
    Typed "$shown"
    whole=$("$@" 2>&1 | tr -d '\r') || true
    {
        head -n "$lines" <<<"$whole"
        echo "... ($(wc -l <<<"$whole") lines) ..."
        tail -n "$lines" <<<"$whole"
    } | fold -s -w 96 | sed 's/ *$//; s/^/    /'
}
