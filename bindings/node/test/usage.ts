// Compiled only: what the declarations allow.
import { load, Status, ZoError, Protector, Signer, CrashReporter } from '..';

async function use(): Promise<void> {
    const { protector, signer, crash } = load('ZoProtectorLib.dll');
    protector.addFileProtectByFolder('C:\\Suite', 1);
    for await (const { lost, records } of protector.events({ capacity: 16 })) {
        if (lost > 0 || records[0].length !== 562) break;
    }
    await signer.signDirectory({ root: 'a', manifest: 'b', onFolder: (path) => ({ seal: path === '.' }) });
    try {
        await crash.run({ onMessage: (level, text) => console.log(level, text) });
    } catch (error) {
        if (!(error instanceof ZoError) || error.status !== Status.CANCELLED) throw error;
    }
    // @ts-expect-error a verification needs a root
    await signer.verifyDirectory({ manifest: 'b' });
}

export const members: [keyof Protector | keyof Signer | keyof CrashReporter, typeof use][] = [['events', use]];
