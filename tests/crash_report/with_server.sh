# with_server.sh SERVE FOLDER [OPTION...] -- COMMAND...: runs a command with a crash server whose folder is new.
set -eu
serve=$1 folder=$2
shift 2
rm -rf "$folder"
exec "$serve" --folder "$folder" --port 0 --record "$@"
