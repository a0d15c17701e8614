// node refresh.js METADATA-ADDRESS FOLDER [TARGETS-ADDRESS FOLDER NAME...]: what tuf-js, from its registry, does to come
// up to date, and to fetch targets.

const { Updater } = require('tuf-js');
const [metadataBaseUrl, metadataDir, targetBaseUrl, targetDir, ...names] = process.argv.slice(2);

async function run() {
  const updater = new Updater({ metadataBaseUrl, metadataDir, targetBaseUrl, targetDir });
  await updater.refresh();
  for (const name of names) {
    const target = await updater.getTargetInfo(name);
    if (!target) throw new Error(`no target ${name}`);
    await updater.downloadTarget(target, `${targetDir}/${name.replace(/\//g, '_')}`);
  }
}

run().catch((error) => {
  console.error(String(error));
  process.exit(1);
});
