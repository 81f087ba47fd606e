# To be sourced by scripts/demo: the chapter about the crash reporter.

Chapter "A crash is reported" \
    "A server that takes crash reports starts on this machine; the reporter talks to it over HTTPS, so the machine has to
     trust its certificate."
mkdir -p "$work/server"
simulator/crash_server/serve --port 0 --folder "$work/server" >"$work/server.out" 2>&1 &
serverId=$!
for ((tries = 0; tries < 100; tries++)); do
    grep -q '^listening on' "$work/server.out" && break
    sleep 0.1
done
port=$(sed -n 's/^listening on //p' "$work/server.out")
[ -n "$port" ] || { cat "$work/server.out" >&2; exit 1; }
Show "crash_server/serve" cat "$work/server.out"
cp "$work/server/certificate.der" "$drive/server.der"
Show 'trust_certificate add C:\server.der' ZoWine "$bin/trust_certificate.exe" add 'C:\server.der'

Say "A kernel crash dump appears: the system stopped in a driver called storage.sys, with the suite's driver on the stack."
mkdir -p "$drive/Dumps"
# Bug check 0xD1: address read, IRQL, 0 for a read, and the instruction that did it, which is storage+0x1200.
Show 'make_dump.py C:\Dumps\today.dmp' simulator/debug_engine/make_dump.py --bugcheck 0xD1 \
    --parameters 0x10 2 0 0xfffff80604001200 --module storage.sys --module ZoProtector.sys \
    --frame nt+0x3f5e40 --frame storage+0x1200 --frame ZoProtector+0x1a2b "$drive/Dumps/today.dmp"
crashOptions=(--dumps 'C:\Dumps' --target ZoProtector --record 'C:\crash-record')
Zoctl crash list "${crashOptions[@]:0:4}"
Say "The run has it analysed, finds the driver on the stack, asks the server whether it knows this crash, and uploads."
Zoctl crash run "${crashOptions[@]}" --server "https://localhost:$port/crash"
Say "What the server received, as its web page shows it:"
Report() {
    curl --silent --show-error --fail --cacert "$work/server/certificate.pem" "https://localhost:$port/report/1" |
        python3 scripts/html_text.py
}
Show "curl https://localhost:$port/report/1" Report
Say "A second run finds nothing new: the record says up to which dump the last run came."
Zoctl crash run "${crashOptions[@]}" --server "https://localhost:$port/crash"
