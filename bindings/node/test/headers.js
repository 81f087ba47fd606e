'use strict';

// The declarations against the public headers: every function with its arguments, every record with its offsets, every
// callback and status. Runs on any system: it needs the headers' compiler and not the library.

const assert = require('node:assert');
const { execFileSync } = require('node:child_process');
const path = require('node:path');
const test = require('node:test');
const koffi = require('koffi');
const { records, callbacks, functions, Status } = require('../declarations');

const root = process.env.ZO_SOURCE ?? path.join(__dirname, '../../..');
const layouts = path.join(root, 'tests/bindings/layouts.py');
const headers = JSON.parse(execFileSync('python3', ['-B', layouts], { encoding: 'utf8' }));

// Types as they are called here.
const here = (type) => type.replace(/const ?/g, '').replace(/wchar_t/g, 'char16_t').replace(/ /g, '');
const listed = (list) => (list === '' ? [] : list.split(', '))
    .map((text) => text.replace(/^(out|buffer) /, '').replace(/ \w+$/, ''));

test('functions have the arguments of the headers', () => {
    const expected = Object.entries(headers.calls).filter(([name]) => !(name in callbacks))
        .map(([name, types]) => [name, types.map(here)]);
    assert.strictEqual(expected.length, 72);
    assert.deepStrictEqual(Object.entries(functions).map(([name, list]) => [name, listed(list)]), expected);
});

test('callbacks have the arguments of the headers', () => {
    for (const [name, prototype] of Object.entries(callbacks)) {
        assert.deepStrictEqual(listed(/\((.*)\)/.exec(prototype)[1]), headers.calls[name].map(here), name);
    }
    assert.strictEqual(Object.keys(callbacks).length, Object.keys(headers.calls).length - 72);
});

test('records have the sizes and offsets of the compiler', () => {
    assert.deepStrictEqual(Object.keys(records), Object.keys(headers.records));
    for (const [name, fields] of Object.entries(records)) {
        const native = (type) => (Array.isArray(type) ? koffi.array(...type) :
            type.endsWith('*') || type in callbacks ? 'void *' : type);
        const type = koffi.struct(name, Object.fromEntries(Object.entries(fields).map(([f, t]) => [f, native(t)])));
        const [size, offsets] = headers.records[name];
        assert.strictEqual(koffi.sizeof(type), size, name);
        const placed = Object.entries(fields).map(([f, t]) => [f, [koffi.offsetof(type, f), koffi.sizeof(native(t))]]);
        assert.deepStrictEqual(Object.fromEntries(placed), offsets, name);
    }
});

test('statuses have the numbers of the headers', () => {
    for (const [name, number] of Object.entries(headers.statuses)) {
        assert.strictEqual(Status[name.replace(/^ZO(P|SIG)_(E_)?/, '')] >>> 0, number, name);
    }
});
