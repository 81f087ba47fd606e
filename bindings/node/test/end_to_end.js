'use strict';

// The binding with the built library and the simulator driver: install, rules, events, sign, verify, a crash run.

const assert = require('node:assert');
const { spawnSync } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const test = require('node:test');
const { load, ZoError, Status } = require('..');

const bin = path.join(process.env.ZO_BUILD, 'bin');
const zo = load(path.join(bin, 'ZoProtectorLib.dll'));
const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'zo_node_'));
const at = (...names) => path.join(folder, ...names);
const failsWith = (status) => (error) => error instanceof ZoError && error.status === status;

test.after(async () => {
    await zo.protector.uninstallDriver();
    fs.rmSync(folder, { recursive: true });
});

test('every function of the headers has its place', () => {
    const count = Object.keys(zo.protector).length + Object.keys(zo.signer).length + Object.keys(zo.crash).length;
    assert.strictEqual(count, 72 - 2); // the crash reporter's two setters are options of a run
});

test('installs and starts the driver', async () => {
    await zo.protector.uninstallDriver();
    assert.throws(() => zo.protector.initialize(), failsWith(Status.DRIVER_NOT_FOUND));
    await zo.protector.installDriver(path.join(bin, 'ZoProtectorDriver.sys'), 3, '385333', 1);
    await zo.protector.startDriver();
    const status = zo.protector.queryDriverStatus();
    assert.strictEqual(status.state, 4);
    assert.strictEqual(status.altitude, '385333');
    zo.protector.initialize();
    assert.strictEqual(zo.protector.getVersion().major, 1);
});

test('adds, lists and removes rules', () => {
    zo.protector.addFileProtectByFolder('C:\\Suite \u00fc', 1, '*.exe');
    assert.throws(() => zo.protector.addFileProtectByFolder('C:\\Suite \u00fc', 1, '*.exe'),
        failsWith(Status.ALREADY_EXISTS));
    const [rule, ...others] = zo.protector.listFileProtectRules();
    assert.strictEqual(others.length, 0);
    assert.match(rule.toString('utf16le', 0, 1040), /\\Suite \u00fc\0/);
    for (let i = 0; i < 100; ++i) zo.protector.addProcessProtectByPath(`C:\\item${i}`);
    assert.strictEqual(zo.protector.listProcessProtectRules().length, 100);
    zo.protector.removeFileProtect('C:\\Suite \u00fc');
    assert.strictEqual(zo.protector.getStatus().count2, 0);
    zo.protector.setSignaturePolicy({ mode: 1, minLevel: 7 });
    assert.strictEqual(zo.protector.getSignaturePolicy().minLevel, 7);
});

// Without pipes: those of Wine do not work for this Node.js.
function simctl(...words) {
    const { status } = spawnSync(path.join(bin, 'simctl.exe'), words, { stdio: 'ignore' });
    assert.strictEqual(status, 0, words.join(' '));
}

test('gives events and losses until it is told to stop', async () => {
    for (const [ring, size, kept] of [['events', 562, 1024], ['registry', 1076, 512]]) {
        simctl('inject', String(kept + 5), ring);
        const stop = new AbortController();
        const options = { signal: stop.signal, capacity: 300, intervalMs: 5 };
        let read = 0;
        let lost = 0;
        for await (const batch of zo.protector[ring === 'events' ? 'events' : 'registryEvents'](options)) {
            lost += batch.lost;
            read += batch.records.length;
            assert.strictEqual(batch.records[0].length, size);
            if (read === kept) simctl('inject', '2', ring);
            if (read === kept + 2) setTimeout(() => stop.abort(), 20); // also ends the wait for the next poll
        }
        assert.deepStrictEqual({ ring, read, lost }, { ring, read: kept + 2, lost: 5 });
    }
});

test('seals, verifies and reports what was changed', async () => {
    fs.mkdirSync(at('tree/below'), { recursive: true });
    fs.writeFileSync(at('tree/a.txt'), 'one');
    const options = { root: at('tree'), manifest: at('manifest'), keystore: at('keys') };
    const asked = [];
    const signed = await zo.signer.signDirectory({ ...options, onFolder: (name) => { asked.push(name); return {}; } });
    assert.deepStrictEqual(asked, ['.', 'below']);
    assert.strictEqual(signed.sealedDirectories, 2);
    assert.deepStrictEqual(Buffer.from(signed.thumbprint), zo.signer.getPublicKeyThumbprint(at('keys')));
    assert.strictEqual((await zo.signer.verifyDirectory(options)).ok, 1);

    fs.writeFileSync(at('tree/a.txt'), 'two');
    const messages = [];
    await assert.rejects(
        zo.signer.verifyDirectory({ ...options, onMessage: (level, text) => messages.push(text) }),
        (error) => failsWith(Status.VERIFY_FAILED)(error) && error.result.bad === 1);
    assert.ok(messages.some((text) => text.startsWith('[BAD ] ')));
});

test('gives an exception of a callback to the caller', async () => {
    const options = { root: at('tree'), manifest: at('other'), keystore: at('keys') };
    const raise = () => { throw new RangeError('mine'); };
    await assert.rejects(zo.signer.signDirectory({ ...options, onFolder: raise }), RangeError);
    assert.ok(!fs.existsSync(at('other')));
    await assert.rejects(zo.signer.signDirectory({ ...options, onMessage: raise }), RangeError);
    assert.ok(fs.existsSync(at('other')));
});

test('runs the crash reporter with its callbacks, and cancels it', async () => {
    fs.mkdirSync(at('dumps'));
    fs.copyFileSync(path.join(bin, 'dumps/ours.dmp'), at('dumps/a.dmp'));
    zo.crash.initialize({
        serverUrl: 'https://127.0.0.1:9/crash', minidumpDir: at('dumps'), compareFilePath: at('record'),
        networkWaitSeconds: 60,
    });
    const messages = [];
    const documents = [];
    const running = zo.crash.run({
        onMessage: (level, text) => messages.push(text),
        onDocument: (document) => { documents.push(document); return document; },
    });
    setTimeout(() => zo.crash.notifyNetworkOk(), 50); // the event loop goes on while the run waits
    const stats = await running;
    assert.strictEqual(stats.dumpsFound, 1);
    assert.strictEqual(stats.queriesFailed, 1);
    assert.ok(documents[0].length > 100);
    assert.ok(messages.some((text) => text.startsWith('Found 1 new minidump')));
    await assert.rejects(zo.crash.uploadSingleDump(at('none.dmp')), (error) => error.code === '0x80070002');
    zo.crash.cancel();
    await assert.rejects(zo.crash.run(), failsWith(Status.CANCELLED));
    zo.crash.resetCancel();
});
