# staging_test.sh WINE-RUN PREFIX PROGRAM: gives the test a dump folder that it may not read. Root is never denied, so
# the client runs without the capabilities that make it so, while the driver, started before, keeps them.
set -eu
wine_run=$1 prefix=$2 program=$3
if [ "$(id -u)" != 0 ]; then
    echo "not root: a driver of this user's can read no more than the test itself; skipped"
    exit 77
fi

work=$prefix/drive_c/zo_staging_test
clean() {
    "$wine_run" "$prefix" "$program" --gtest_also_run_disabled_tests --gtest_filter=*DISABLED_Remove >/dev/null
    chmod -R u+rwX "$work"
    rm -rf "$work"
}
"$wine_run" "$prefix" "$program" --gtest_also_run_disabled_tests --gtest_filter=*DISABLED_Start
rm -rf "$work"
mkdir -p "$work/denied/folder" "$work/victim"
trap clean EXIT
cp "$(dirname "$program")/dumps/ours.dmp" "$work/denied/a.dmp"
echo inner >"$work/denied/folder/inner.dmp"
printf precious >"$work/victim/precious"
for temporary in linked tmp swapped held kept; do
    mkdir -p "$work/$temporary/ZoProtector/Minidump/old/deep"
    echo old >"$work/$temporary/ZoProtector/Minidump/old/deep/file"
done
ln -s "$work/victim" "$work/linked/ZoProtector/Minidump/link"
chmod 000 "$work/denied"
without=-dac_override,-dac_read_search
setpriv --bounding-set $without --inh-caps $without "$wine_run" "$prefix" "$program"
