# Sourced by every stand-in program: notes its command line and behaves as the
# client's switches say. A switch file, state/PROGRAM, holds KEY='VALUE' lines;
# state/PROGRAM.out, where it exists, is printed in place of the own output.
program=${0##*/}
program=${program%.cmd}
base=${0%/velka/bin/*}
mode=ok

note_command() {
    line=$program
    for word; do
        case $word in
            '' | *[!A-Za-z0-9._/:=,+@%-]*) line="$line <$word>" ;;
            *) line="$line $word" ;;
        esac
    done
    printf '%s\n' "$line" >>"$base/log/commands"
}

# The end status, at full width for the Windows interpreter.
finish() {
    if [ -n "${VK_STATUS_FILE-}" ]; then printf '%s\n' "$1" >"$VK_STATUS_FILE"; fi
    exit $(($1 & 255))
}

# Ways to misbehave that are the same for every program.
misbehave() {
    case $mode in
        silent) exec sleep 3600 ;;
        flood) exec yes "a client that talks without end" ;;
        megabytes) yes "one line of many megabytes of output" | head -c "${bytes:-33554432}" ;;
        garbage) printf '\033[2J\001\002\377\376\303(\200\r\033]0;title\007 text \r\n\300\257\n' ;;
        exit255) finish 255 ;;
        fail)
            printf '%s\n' "${text-command failed}"
            finish "${exit:-1}" ;;
        cut)
            printf 'QTC_VERSION=5.1'
            sleep 1 # until what came so far has left the machine
            kill -KILL "$VK_SESSION_PID"
            exec sleep 3600 ;;
    esac
    if [ -f "$base/state/$program.out" ]; then
        cat "$base/state/$program.out"
        finish "${exit:-0}"
    fi
}

# The client's software is that package from now on.
install_package() { # PACKAGE_NAME
    version=$(printf '%s\n' "$1" | sed -n 's/^[^0-9]*\([0-9][0-9]*\.[0-9.]*-[0-9]*\).*/\1/p')
    printf 'version=%s\npackage_name=%s\nupdate_date=%s\n' "${version:-0.0.0-0}" "$1" \
        "$(date '+%Y-%m-%d %H:%M:%S')" >"$base/velka/ini/vk.ini"
}

note_command "$@"
if [ -f "$base/state/$program" ]; then . "$base/state/$program"; fi
