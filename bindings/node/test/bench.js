'use strict';

// Calls a second through the binding, against the same calls by bare koffi functions, in alternating small rounds: the
// median ratio holds still on a busy machine. bench/sdk has the same calls from C++.

const path = require('node:path');
const koffi = require('koffi');
const { load } = require('..');

const bin = path.join(process.env.ZO_BUILD, 'bin');
const library = path.join(bin, 'ZoProtectorLib.dll');
const zo = load(library);
const bare = koffi.load(library);

function compare(name, callsOfARound, binding, direct, rounds = 201) {
    const round = (call) => {
        const start = process.hrtime.bigint();
        for (let i = 0; i < callsOfARound; ++i) call();
        return Number(process.hrtime.bigint() - start) / callsOfARound;
    };
    const median = (values) => values.sort((a, b) => a - b)[values.length >> 1];
    const times = Array.from({ length: rounds }, () => [round(binding), round(direct)]);
    const rate = (which) => String(Math.round(1e9 / median(times.map((pair) => pair[which])))).padStart(10);
    const ratio = median(times.map(([one, other]) => one / other)).toFixed(2);
    console.log(`${name.padEnd(28)}${rate(0)} calls/s, bare koffi ${rate(1)} calls/s, times ${ratio}`);
}

(async () => {
    await zo.protector.uninstallDriver();
    await zo.protector.installDriver(path.join(bin, 'ZoProtectorDriver.sys'), 3, null, 1);
    await zo.protector.startDriver();
    zo.protector.initialize();
    const notify = bare.func('int32_t ZoCrashReport_NotifyNetworkOk()');
    const enable = bare.func('int32_t ZoProtector_EnableFileProtect(int32_t)');
    const version = bare.func('int32_t ZoProtector_GetVersion(_Out_ uint32_t*, _Out_ uint32_t*, _Out_ uint32_t*)');
    compare('notifyNetworkOk, no request', 1000, () => zo.crash.notifyNetworkOk(), () => notify());
    compare('enableFileProtect', 5, () => zo.protector.enableFileProtect(1), () => enable(1));
    compare('getVersion', 5, () => zo.protector.getVersion(), () => version([0], [0], [0]));
    await zo.protector.uninstallDriver();
})();
