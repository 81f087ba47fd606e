'use strict';

// Calls a second through the binding and, as far as they need no arguments of their own, what a bare koffi call makes of
// them. bench/sdk has the same calls from C++.

const path = require('node:path');
const koffi = require('koffi');
const { load } = require('..');

const bin = path.join(process.env.ZO_BUILD, 'bin');
const library = path.join(bin, 'ZoProtectorLib.dll');
const zo = load(library);
const bare = koffi.load(library).func('int32_t ZoProtector_EnableFileProtect(int32_t)');

function rate(name, call, seconds = 2) {
    const end = process.hrtime.bigint() + BigInt(seconds * 1e9);
    const start = process.hrtime.bigint();
    let calls = 0;
    while (process.hrtime.bigint() < end) {
        for (let i = 0; i < 50; ++i) call();
        calls += 50;
    }
    const each = Number(process.hrtime.bigint() - start) / calls / 1000;
    const perSecond = String(Math.round(1e6 / each));
    console.log(`${name.padEnd(36)} ${perSecond.padStart(9)} calls/s ${each.toFixed(1).padStart(8)} us`);
}

(async () => {
    await zo.protector.uninstallDriver();
    await zo.protector.installDriver(path.join(bin, 'ZoProtectorDriver.sys'), 3, null, 1);
    await zo.protector.startDriver();
    zo.protector.initialize();
    rate('refused argument (no request)', () => {
        try { zo.protector.addFileProtectByPath(''); } catch { /* wanted */ }
    });
    rate('hardware id bytes', () => zo.protector.getHardwareIdBytes());
    rate('enableFileProtect, bare koffi', () => bare(1));
    rate('enableFileProtect', () => zo.protector.enableFileProtect(1));
    rate('getStatus', () => zo.protector.getStatus());
    rate('listFileProtectRules', () => zo.protector.listFileProtectRules());
    await zo.protector.uninstallDriver();
})();
