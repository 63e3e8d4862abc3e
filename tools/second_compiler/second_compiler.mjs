// Has a current clang read the sources that another compiler builds, with all of clang's warnings but those named here
// as errors: `second_compiler.mjs COMPILE_COMMANDS [PATH...]`. COMPILE_COMMANDS is the list that CMake writes. With
// paths, only those files and the files below those folders are read; without, all but the unit made for clang-tidy,
// which repeats others. Sources of the cross compiler are read for the same target, native ones with libc++, whose
// headers include fewer others by accident.
import { execFile } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { availableParallelism } from 'node:os';
import { dirname, relative, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';

const Root = resolve(dirname(fileURLToPath(import.meta.url)), '../..');
const Clang = 'clang++-22';
const run = promisify(execFile);

const Excepted = [
    'c++98-compat', 'c++98-compat-pedantic', // older standards
    'padded', 'nrvo', // what the compiler chooses
    'unsafe-buffer-usage', 'unsafe-buffer-usage-in-libc-call', 'unsafe-buffer-usage-in-container', // any pointer
    'switch-default', 'switch-enum', // A switch has all values or a default.
    'ctad-maybe-unsupported', // deduced template arguments
    'non-virtual-dtor', // COM interfaces
    'weak-vtables', 'exit-time-destructors', 'global-constructors', // GoogleTest's tests
    'dll-attribute-on-redeclaration', // DllCanUnloadNow of the rig's runtime, which the system's header declares
    'missing-prototypes', // wmain, which no header declares
    'used-but-marked-unused', // headers of the cross compiler
];
const ExceptedFiles = [
    'tests/frames/frame_file_steps_test.cpp', // The cross compiler's <intrin.h> and clang's contradict each other.
];

// The include folders of the cross compiler's C++ library, which clang does not find by itself.
async function libraryFolders(compiler) {
    const { stderr } = await run('sh', ['-c', '"$0" -E -x c++ -v /dev/null', compiler]);
    const [, list] = /#include <\.\.\.> search starts here:\n(.*?)End of search list/s.exec(stderr);
    return list.split('\n').map((line) => line.trim()).filter((folder) => folder.includes('c++'));
}

// The options of a compile command that decide what the source means.
function meaningOf(words) {
    return words.flatMap((word, index) => {
        const next = ['-isystem', '-I', '-D'].includes(word) ? [words[index + 1]] : [];
        return next.length > 0 || /^-(I.|D.|std=|mavx2)/.test(word) ? [word, ...next] : [];
    });
}

// CMake escapes only blanks, quotes and backslashes.
function wordsOf(command) {
    return [...command.matchAll(/(?:\\.|"(?:\\.|[^"\\])*"|[^\s"\\])+/g)].map(([word]) =>
        word.replace(/\\(.)|"/g, '$1'));
}

async function complaintsAbout({ directory, command, file }, foldersOf) {
    const words = wordsOf(command);
    const compiler = words.find((word) => word.includes('++'));
    const target = compiler.includes('mingw32')
        ? ['--target=x86_64-w64-mingw32', ...(await foldersOf(compiler)).flatMap((folder) => ['-isystem', folder])]
        : ['-stdlib=libc++'];
    try {
        await run(Clang, [
            ...target, '-fsyntax-only', '-Werror', '-Weverything', ...Excepted.map((name) => `-Wno-${name}`),
            ...meaningOf(words), file,
        ], { cwd: directory, maxBuffer: 1 << 26 });
        return '';
    } catch (error) {
        return error.stderr || error.message;
    }
}

// A unit that CMake made of several sources counts as these.
function sourcesOf(entry) {
    if (!entry.file.includes('/Unity/')) {
        return [entry];
    }
    return [...readFileSync(entry.file, 'utf8').matchAll(/^#include "(.+)"$/gm)].map(([, file]) => ({ ...entry, file }));
}

const [list, ...wanted] = process.argv.slice(2);
const chosen = JSON.parse(readFileSync(list, 'utf8')).flatMap(sourcesOf).filter(({ file }) => {
    const path = relative(Root, file);
    return path.endsWith('.cpp') && !path.startsWith('..') && !path.includes('googletest') &&
        !ExceptedFiles.includes(path) &&
        (wanted.length === 0 ? !path.includes('/tidy/') : wanted.some((each) => `${path}/`.startsWith(`${each}/`)));
});
// A file may belong to several targets.
const waiting = [...new Map(chosen.map((entry) => [entry.file, entry])).values()];
if (waiting.length === 0) {
    throw new Error(`${list} lists none of the files`);
}
const known = new Map();
const foldersOf = (compiler) => known.get(compiler) ?? known.set(compiler, libraryFolders(compiler)).get(compiler);
await Promise.all(Array.from({ length: availableParallelism?.() ?? 2 }, async () => {
    while (waiting.length > 0) {
        const complaints = await complaintsAbout(waiting.shift(), foldersOf);
        if (complaints) {
            process.exitCode = 1;
            process.stderr.write(complaints);
        }
    }
}));
