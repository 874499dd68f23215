// Heading ids against github-slugger's, the rule GitHub's ids follow: every vector of
// slug_vectors.txt (one heading's text a line, a blank line between documents) through both.
// usage: node slugs.mjs SLUG_IDS_BINARY VECTORS
import { execFileSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import GithubSlugger from 'github-slugger';

const [binary, vectors] = process.argv.slice(2);
const input = readFileSync(vectors, 'utf8');
const ours = execFileSync(binary, { input, encoding: 'utf8' }).split('\n');
let slugger = new GithubSlugger();
let failures = 0;
input.split('\n').slice(0, -1).forEach((text, index) => {
  if (text === '') {
    slugger = new GithubSlugger();
    return;
  }
  const expected = slugger.slug(text);
  if (ours[index] !== expected) {
    failures += 1;
    console.log(`FAIL: ${JSON.stringify(text)}: ${JSON.stringify(ours[index])}, github-slugger ${JSON.stringify(expected)}`);
  }
});
console.log(`${input.split('\n').filter((t) => t !== '').length} headings, ${failures} differ`);
process.exit(failures ? 1 : 0);
