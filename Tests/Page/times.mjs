// How long the page of a large history takes to be seen: `Tests/Page/browse` fetches what drives the browser, and
//   node Tests/Page/times.mjs PROGRAMS CHROMIUM TOOLS TREE [TURNS]
// copies TREE, makes a history of so many turns over it (1,000 unless it is told), and prints the times in milliseconds.
// For a machine that does nothing else meanwhile; no test, for no machine is like another.
import {execFileSync, spawn} from 'node:child_process';
import fs from 'node:fs';
import {createRequire} from 'node:module';
import os from 'node:os';
import path from 'node:path';

const [programs, chromium, tools, tree, turns = '1000'] = process.argv.slice(2);
const {chromium: browsers} = createRequire(path.join(path.resolve(tools), 'node_modules/'))('playwright-core');
const program = path.resolve(programs, 'tidewrack');
const scratch = fs.mkdtempSync(path.join(os.tmpdir(), 'tidewrack-times-'));
const folder = path.join(scratch, 'tree');
const env = {...process.env, HOME: scratch, TIDEWRACK_HOME: path.join(scratch, 'store')};
const run = (words, input) => execFileSync(program, words, {cwd: folder, env, input, maxBuffer: 1 << 28});
const hook = fields => run(['hook', 'claude'], JSON.stringify({session_id: 's', cwd: folder, ...fields}));
const rounds = 7;

function makeHistory() {
    execFileSync('cp', ['-a', tree, folder]);
    run(['track']);
    const names = execFileSync('find', ['.', '-name', '*.c', '-size', '-64k'], {cwd: folder, encoding: 'utf8', maxBuffer: 1 << 28}).trim().split('\n').sort();
    for (let turn = 0; turn < Number(turns); ++turn) {
        hook({hook_event_name: 'UserPromptSubmit', prompt: 'Turn ' + turn + ' of many'});
        for (let each = 0; each < 20; ++each)
            fs.appendFileSync(path.join(folder, names[(turn * 37 + each * 991) % names.length]), `/* turn ${turn} */\n`);
        hook({hook_event_name: 'Stop'});
    }
}

const median = all => all.sort((a, b) => a - b)[all.length >> 1];

async function look(browser) {
    const server = spawn(program, ['browse', '--no-open', '--read-only'], {cwd: folder, env});
    const address = await new Promise(done => server.stdout.on('data', text => done(/http:\S+/.exec(String(text))[0])));
    const first = [];
    const all = [];
    const lines = [];
    for (let round = 0; round < rounds; ++round) {
        const view = await (await browser.newContext()).newPage();
        const begin = performance.now();
        await view.goto(address, {waitUntil: 'commit'});
        await view.locator('.row').first().waitFor();
        first.push(performance.now() - begin);
        await view.waitForFunction(count => parseInt(document.getElementById('count').textContent, 10) >= count, Number(turns));
        all.push(performance.now() - begin);
        await view.locator('#turn .hunk').first().waitFor();
        // From the press of a key in the page to the lines of the turn, painted.
        lines.push(await view.evaluate(turn => new Promise(done => {
            const place = document.getElementById('turn');
            const pressed = performance.now();
            const see = new MutationObserver(() => {
                if (!place.querySelector('h2')?.textContent.includes(turn) || !place.querySelector('.hunk')) return;
                see.disconnect();
                requestAnimationFrame(() => setTimeout(() => done(performance.now() - pressed)));
            });
            see.observe(place, {childList: true, subtree: true});
            document.body.dispatchEvent(new KeyboardEvent('keydown', {key: 'j', bubbles: true}));
        }), 'Turn ' + (Number(turns) - 2) + ' '));
        await view.context().close();
    }
    server.kill();
    console.log(`first rows ${median(first).toFixed(0)} ms, all ${turns} turns ${median(all).toFixed(0)} ms, the lines of a turn of 20 files ` +
        `${median(lines).toFixed(0)} ms (medians of ${rounds}; ${execFileSync('find', [folder], {encoding: 'utf8', maxBuffer: 1 << 28}).split('\n').length - 1} paths)`);
}

try {
    makeHistory();
    const browser = await browsers.launch({executablePath: chromium, args: ['--no-sandbox']});
    await look(browser);
    await browser.close();
} finally {
    fs.rmSync(scratch, {recursive: true, force: true});
}
