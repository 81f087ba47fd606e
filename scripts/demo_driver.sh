# To be sourced by scripts/demo: the chapters about the driver.

Chapter "A machine without a driver" \
    "A fresh Wine prefix plays the part of a Windows machine. zoctl is the command-line tool over the library's exports; each
     command below is a call or two of them."
Zoctl driver status

Chapter "Installing and starting the driver" \
    "The driver here is the simulator: the service manager loads it as it would load the real one, it keeps real tables and
     answers every command, but it ENFORCES NOTHING. Whatever is protected below is listed, not shielded."
Zoctl driver install "$drivers\\ZoProtectorDriver.sys" --allow-unload
Zoctl driver start
Zoctl driver status
Say "Now the driver can be opened and its status read:"
Zoctl status

RunningAgent() {
    local tries
    for ((tries = 0; tries < 20; tries++)); do
        ZoWine wmic process get name,processid | iconv -f UTF-16 -t UTF-8 | grep agent.exe && return
        sleep 0.5
    done
    return 1
}

Chapter "Rules for programs, files, folders and keys" \
    "A little suite to protect: a program that is running, its settings, and a folder of data."
mkdir -p "$drive/Suite/data"
cp "$drive/windows/system32/ping.exe" "$drive/Suite/agent.exe"  # something that runs on
echo "level=high" >"$drive/Suite/settings.ini"
ZoWine 'C:\Suite\agent.exe' -n 1000 127.0.0.1 </dev/null >/dev/null 2>&1 &
Show 'wmic process get name,processid | findstr agent.exe' RunningAgent
Zoctl process add 'C:\Suite\agent.exe'
Zoctl file add 'C:\Suite\settings.ini'
Zoctl file add-folder 'C:\Suite\data' --recursive --filter '*.dat'
Zoctl registry add 'HKLM\SOFTWARE\Suite' --recursive
Say "What the driver holds now. It knows the kernel's names, not drive letters; the library converted them."
Zoctl rules list
Say "The same rule a second time is refused, with a status and a sentence that says what it means:"
Expecting 6 Zoctl file add 'c:\SUITE\settings.ini'

Chapter "The same from a file" \
    "A rule file says what the driver is to hold. It is compared with what the driver holds, and the fewest commands bring
     the driver there."
cat >"$drive/rules.json" <<'RULES'
{
    "version": 1,
    "process": { "rules": [ { "folder": "C:\\Suite", "recursive": true } ] },
    "file": { "rules": [ { "path": "C:\\Suite\\settings.ini" },
                         { "folder": "C:\\Suite\\data", "recursive": true } ] }
}
RULES
Show "type rules.json" cat "$drive/rules.json"
Expecting 50 Zoctl rules diff 'C:\rules.json'
Zoctl rules apply 'C:\rules.json'
Zoctl rules list
Zoctl rules diff 'C:\rules.json'

Chapter "What the driver saw" \
    "The driver writes what it sees into rings; the library drains them. simctl makes the simulator see three things:"
Simctl inject 3
Zoctl events
Say "The fields are the driver's own. A file of their names turns the bytes into columns, and selects:"
Zoctl events --vocabulary "$drivers\\vocabulary.json" --where kind=process
Say "When nobody reads for a while, the ring overflows. Lost events are reported where they are missing:"
Simctl inject 1500
ShowSome 4 "zoctl events --vocabulary $drivers\\vocabulary.json" \
    ZoWine "$bin/zoctl.exe" events --vocabulary "$drivers\\vocabulary.json"
Zoctl stats --vocabulary "$drivers\\vocabulary.json"

Chapter "A newer driver, while the old one runs" \
    "The new file carries version 1.0.1. A running driver's file cannot be overwritten; the library moves it aside and puts
     the new one in its place, and the next start loads that."
Zoctl driver upgrade "$drivers\\ZoProtectorDriver_1_0_1.sys"
Zoctl driver stop
Zoctl driver start
Zoctl driver status
Say "Rules live in the driver, so the new one starts empty. It is a file and a service key like others, and protects its
     own when asked to:"
Zoctl driver self-protect
Zoctl rules list
