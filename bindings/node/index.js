'use strict';

// ZoProtectorLib for Node.js. index.d.ts describes what is exported; the public headers say what each function does.

const koffi = require('koffi');
const { records, callbacks, functions, Status } = require('./declarations');

// Calls that wait for a service, files or the network run on a worker thread and give a promise, so that the event loop,
// and with it every callback, goes on meanwhile.
const slow = new Set([
    'ZoProtector_InstallDriver', 'ZoProtector_StartDriver', 'ZoProtector_StopDriver', 'ZoProtector_UninstallDriver',
    'ZoProtector_UpgradeDriver', 'ZoProtector_CopyDirectory', 'ZoSigner_GenerateKeyPair', 'ZoSigner_SignDirectory',
    'ZoSigner_VerifyDirectory', 'ZoSigner_VerifyDirectoryWithEmbeddedKey', 'ZoCrashReport_Run',
    'ZoCrashReport_UploadSingleDump',
]);

class ZoError extends Error {
    constructor(functionName, status, result) {
        const known = Object.keys(Status).find((name) => Status[name] === status);
        const number = `0x${(status >>> 0).toString(16).toUpperCase().padStart(8, '0')}`;
        super(`${functionName} failed: ${known ? `${known} (${number})` : number}`);
        this.name = 'ZoError';
        this.functionName = functionName;
        this.status = status;
        this.code = known ?? number;
        this.result = result; // what the function filled in before it failed
    }
}

const typeName = (type) => (type === 'char16_t*' ? 'str16' : type);

function declareTypes() {
    const types = {};
    for (const [name, prototype] of Object.entries(callbacks)) {
        types[name] = koffi.proto(prototype.replace('(', `${name}(`).replaceAll('char16_t*', 'str16'));
    }
    for (const [name, fields] of Object.entries(records)) {
        const members = Object.entries(fields).map(([field, type]) => {
            if (Array.isArray(type)) return [field, koffi.array(type[0], type[1])];
            return [field, types[type] ? koffi.pointer(types[type]) : typeName(type)];
        });
        types[name] = koffi.struct(name, Object.fromEntries(members));
    }
    return types;
}

const types = declareTypes();

function parameters(list) {
    return (list === '' ? [] : list.split(', ')).map((text) => {
        const [, mode, type, name] = /^(out |buffer )?(.+) (\w+)$/.exec(text);
        return { mode: mode ? mode.trim() : 'in', type, name, isRecord: type.slice(0, -1) in records };
    });
}

function zeros(record) {
    return Object.fromEntries(Object.entries(records[record]).map(([field, type]) => {
        if (!Array.isArray(type)) return [field, 0];
        return [field, type[0] === 'char16_t' ? '' : new Array(type[1]).fill(0)];
    }));
}

function nativeType({ mode, type }) {
    if (mode === 'buffer') return 'void *';
    // In and out, so that what the library leaves untouched, or adds to, is 0 and not whatever the memory held.
    if (mode === 'out') return koffi.inout(koffi.pointer(types[type.slice(0, -1)] ?? type.slice(0, -1)));
    if (callbacks[type]) return koffi.pointer(types[type]);
    if (type === 'char16_t*') return 'str16';
    if (type === 'char**') return koffi.pointer('str');
    return type.endsWith('*') && types[type.slice(0, -1)] ? koffi.pointer(types[type.slice(0, -1)]) : type;
}

// Each function as (inputs) => result; a failure is thrown, or rejects the promise of a slow one.
function bind(library, name) {
    const list = parameters(functions[name]);
    const native = library.func(name, 'int32_t', list.map(nativeType));
    const outputs = list.filter((parameter) => parameter.mode === 'out');

    const prepare = (inputs) => {
        let next = 0;
        return list.map((parameter) => {
            if (parameter.mode === 'out') return parameter.isRecord ? zeros(parameter.type.slice(0, -1)) : [0];
            return inputs[next++] ?? null;
        });
    };
    const finish = (status, values) => {
        const filled = {};
        list.forEach((parameter, i) => {
            if (parameter.mode === 'out') filled[parameter.name] = parameter.isRecord ? values[i] : values[i][0];
        });
        const result = outputs.length === 0 ? undefined : outputs.length === 1 ? filled[outputs[0].name] : filled;
        if (status < 0) throw new ZoError(name, status, result);
        return result;
    };
    if (!slow.has(name)) {
        return (...inputs) => {
            const values = prepare(inputs);
            return finish(native(...values), values);
        };
    }
    return (...inputs) => new Promise((resolve, reject) => {
        const values = prepare(inputs);
        native.async(...values, (error, status) => {
            try {
                if (error) throw error;
                resolve(finish(status, values));
            } catch (failure) {
                reject(failure);
            }
        });
    });
}

// Callbacks of one call. An exception in one must not go through the library: it is kept, and raised when the call is
// over; the callback is not run again.
class Callbacks {
    #registered = [];
    #failed = false;
    #error;

    register(type, fallback, work) {
        const guarded = (...values) => {
            if (this.#failed) return fallback;
            try {
                return work(...values);
            } catch (error) {
                this.#failed = true;
                this.#error = error;
                return fallback;
            }
        };
        const pointer = koffi.register(guarded, koffi.pointer(types[type]));
        this.#registered.push(pointer);
        return pointer;
    }
    async during(call) {
        try {
            return await call();
        } finally {
            this.#registered.forEach((pointer) => koffi.unregister(pointer));
            if (this.#failed) throw this.#error;
        }
    }
}

const lists = {
    listProcessProtectRules: 'ZopProcessRuleEntry', listFileProtectRules: 'ZopFileRuleEntry',
    listRegistryProtectRules: 'ZopRegistryRuleEntry', listDllWhitelistRules: 'ZopDllWhitelistEntry',
};

const recordsIn = (buffer, size, count) => Array.from({ length: count },
    (_, i) => buffer.subarray(i * size, (i + 1) * size));

// The whole table, each entry as the bytes of its record.
function listAll(list, entry) {
    const size = koffi.sizeof(types[entry]);
    for (let capacity = 64; ;) {
        const buffer = Buffer.alloc(capacity * size);
        const { count, total } = list(buffer, capacity);
        if (count === total) return recordsIn(buffer, size, count);
        if (count < capacity || total < count || total > 1 << 20) throw new ZoError('list', Status.FAILED, { total });
        capacity = total + 64;
    }
}

const wait = (milliseconds, signal) => new Promise((resolve) => {
    if (signal?.aborted) return resolve();
    const end = () => {
        clearTimeout(timer);
        signal?.removeEventListener('abort', end);
        resolve();
    };
    const timer = setTimeout(end, milliseconds);
    signal?.addEventListener('abort', end);
});

// Polls a ring until the signal says stop. Each batch has the number of events that were lost before it.
async function* events(drain, size, { capacity = 256, intervalMs = 100, signal } = {}) {
    const buffer = Buffer.alloc(capacity * size);
    let last = 0;
    while (!signal?.aborted) {
        const { count, dropped, position } = drain(last, buffer, capacity);
        if (count !== 0 || dropped !== 0 || position !== 0) last = position; // all 0: too short a reply to say
        if (count !== 0 || dropped !== 0) {
            yield { lost: dropped, records: recordsIn(Buffer.from(buffer.subarray(0, count * size)), size, count) };
        }
        if (count < capacity) await wait(intervalMs, signal);
    }
}

function family(all, prefix) {
    const members = Object.entries(all).filter(([name]) => name.startsWith(prefix));
    return Object.fromEntries(members.map(([name, call]) => {
        const short = name.slice(prefix.length);
        return [short[0].toLowerCase() + short.slice(1), call];
    }));
}

function protector(all) {
    const calls = family(all, 'ZoProtector_');
    for (const [name, entry] of Object.entries(lists)) {
        const list = calls[name];
        calls[name] = () => listAll(list, entry);
    }
    const { drainEvents, drainRegistryEvents, getHardwareId, getHardwareIdBytes, setSignaturePolicy } = calls;
    delete calls.drainEvents;
    delete calls.drainRegistryEvents;
    return {
        ...calls,
        events: (options) => events(drainEvents, koffi.sizeof(types.ZopEventRecord), options),
        registryEvents: (options) => events(drainRegistryEvents, koffi.sizeof(types.ZopRegistryEventRecord), options),
        setSignaturePolicy: (policy) => setSignaturePolicy({ reserved: new Uint8Array(6), ...policy }),
        getHardwareId() {
            const text = Buffer.alloc(65 * 2);
            getHardwareId(text, 65);
            return text.toString('utf16le', 0, 128);
        },
        getHardwareIdBytes() {
            const bytes = Buffer.alloc(32);
            getHardwareIdBytes(bytes, 32);
            return bytes;
        },
    };
}

function signer(all) {
    const calls = family(all, 'ZoSigner_');
    const common = ({ root, manifest, keystore, keyBlob, onMessage }, held) => ({
        root, manifest, keystore: keystore ?? null, keyBlob: keyBlob ?? null, keyBlobSize: keyBlob?.length ?? 0,
        logCallback: onMessage
            ? held.register('ZoSignerLogCallback', undefined, (_, level, message) => onMessage(level, message)) : null,
        logContext: null,
    });
    const verify = (call) => (options) => {
        const held = new Callbacks();
        return held.during(() => call(common(options, held)));
    };
    return {
        generateKeyPair: calls.generateKeyPair,
        getPublicKeyThumbprint(keystore) {
            const bytes = Buffer.alloc(32);
            calls.getPublicKeyThumbprint(keystore, bytes);
            return bytes;
        },
        signDirectory(options) {
            const held = new Callbacks();
            const decide = options.onFolder && held.register('ZoSignerSealCallback', Status.FAILED,
                (_, path, seal, rest) => {
                    const answer = options.onFolder(path);
                    koffi.encode(seal, 'int32_t', answer.seal === false ? 0 : 1);
                    koffi.encode(rest, 'int32_t', answer.applyToRest ? 1 : 0);
                    return 0;
                });
            return held.during(() => calls.signDirectory({
                ...common(options, held), sealMode: decide ? 2 : options.seal === 'none' ? 1 : 0,
                sealCallback: decide ?? null, sealContext: null,
            }));
        },
        verifyDirectory: verify(calls.verifyDirectory),
        verifyDirectoryWithEmbeddedKey: verify(calls.verifyDirectoryWithEmbeddedKey),
    };
}

const noRoom = 0x8007007a | 0;

// (document: Buffer) => Buffer as the C callback, which is called for the size and then for the bytes.
function scramblerOf(scramble) {
    let payload;
    return (_, input, inLength, output, capacity, length) => {
        if (capacity === 0) payload = scramble(Buffer.from(koffi.decode(input, koffi.array('uint8_t', inLength))));
        koffi.encode(length, 'uint32_t', payload.length);
        if (capacity < payload.length) return noRoom;
        if (payload.length !== 0) koffi.encode(output, koffi.array('uint8_t', payload.length), payload);
        return 0;
    };
}

function crash(all) {
    const calls = family(all, 'ZoCrashReport_');
    let running = false;
    const run = (call, { onMessage, onDocument, plain } = {}) => {
        if (running) throw new Error('the crash reporter is running already');
        const held = new Callbacks();
        running = true;
        if (onMessage) {
            calls.setLogger(held.register('ZoCrashLogger', undefined, (_, level, message) => onMessage(level, message)),
                null);
        }
        if (onDocument) {
            const scrambler = held.register('ZoCrashBodyScrambler', Status.FAILED, scramblerOf(onDocument));
            calls.setBodyScrambler(scrambler, null);
        } else if (plain) {
            calls.setBodyScrambler(null, null);
        }
        return held.during(async () => {
            try {
                return await call();
            } finally {
                running = false;
                calls.setLogger(null, null);
                // The built-in scrambler cannot be had back: later runs give their documents up rather than send them
                // as they are.
                if (onDocument) calls.setBodyScrambler(refuse(), null);
            }
        });
    };
    let refusing = null;
    const refuse = () => (refusing ??= koffi.register(() => Status.FAILED, koffi.pointer(types.ZoCrashBodyScrambler)));
    return {
        initialize: (config = {}) => calls.initialize({
            serverUrl: null, appName: null, appVersion: null, lcid: 0, minidumpDir: null, compareFilePath: null,
            maxDumpBytes: 0, networkWaitSeconds: 0, ...config, uploadAll: config.uploadAll ? 1 : 0,
        }),
        uninitialize: calls.uninitialize,
        setTargetDrivers: (names) => calls.setTargetDrivers(names, names.length),
        notifyNetworkOk: calls.notifyNetworkOk,
        cancel: calls.cancel,
        resetCancel: calls.resetCancel,
        run: (options) => run(() => calls.run(), options),
        uploadSingleDump: (path, options) => run(() => calls.uploadSingleDump(path), options),
    };
}

function load(path = 'ZoProtectorLib.dll') {
    const library = koffi.load(path);
    const all = Object.fromEntries(Object.keys(functions).map((name) => [name, bind(library, name)]));
    return { protector: protector(all), signer: signer(all), crash: crash(all) };
}

module.exports = { load, ZoError, Status };
