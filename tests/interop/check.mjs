// tests/interop/check.mjs
// Decodes each x.laz of a directory with laz-perf and compares it with the records of x.las beside it.
// Ends with 1, and a line a file, when a record differs.
import fs from 'node:fs';
import path from 'node:path';
import {createRequire} from 'node:module';

const [, , packages, directory] = process.argv;
const {createLazPerf} = createRequire(path.join(packages, 'package.json'))('laz-perf');
const lazPerf = await createLazPerf();

function check(name) {
  const laz = fs.readFileSync(path.join(directory, name + '.laz'));
  const las = fs.readFileSync(path.join(directory, name + '.las'));
  const offset = las.readUInt32LE(96), length = las.readUInt16LE(105);
  const npoints = Number(las[25] >= 4 ? las.readBigUInt64LE(247) : las.readUInt32LE(107));

  const file = lazPerf._malloc(laz.length), point = lazPerf._malloc(length);
  lazPerf.HEAPU8.set(laz, file);
  const reader = new lazPerf.LASZip();
  try {
    reader.open(file, laz.length);
    if (reader.getCount() !== npoints) return `${reader.getCount()} points instead of ${npoints}`;
    if (reader.getPointLength() !== length) return `records of ${reader.getPointLength()} bytes, not ${length}`;
    for (let i = 0; i < npoints; i++) {
      reader.getPoint(point);
      const record = lazPerf.HEAPU8.subarray(point, point + length);
      const at = offset + i * length;
      if (Buffer.compare(record, las.subarray(at, at + length)) !== 0) return `point ${i} differs`;
    }
    return '';
  } finally {
    reader.delete();
    lazPerf._free(file);
    lazPerf._free(point);
  }
}

let nfailed = 0;
const names = fs.readdirSync(directory).filter((f) => f.endsWith('.laz')).map((f) => f.slice(0, -4));
for (const name of names) {
  const difference = check(name);
  if (difference) nfailed++;
  console.log(`${name}: ${difference || 'the same'}`);
}
console.log(`${names.length - nfailed} files agree, ${nfailed} differ`);
console.log('point formats 4, 5, 9 and 10 passed over: laz-perf does not decode wave packets');
process.exit(nfailed > 0 || names.length === 0 ? 1 : 0);
