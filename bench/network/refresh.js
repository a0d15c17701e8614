// node refresh.js METADATA-ADDRESS FOLDER: what tuf-js, from its registry, does to come up to date.

const { Updater } = require('tuf-js');
const [url, folder] = process.argv.slice(2);
new Updater({ metadataBaseUrl: url, metadataDir: folder }).refresh().catch((error) => {
  console.error(String(error));
  process.exit(1);
});
