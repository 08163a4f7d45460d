// Checks manifests against Kubernetes's schemas, and that the schemas know every field: most of them allow fields that
// they do not know, where a word that is written wrongly would be no setting at all.
//   node check.js FOLDER_WITH_NODE_MODULES MANIFEST... [--patch FILE]   FILE is merged into the StatefulSet
'use strict';
const fs = require('fs');
const path = require('path');

const [folder, ...files] = process.argv.slice(2);
const modules = path.join(folder, 'node_modules');
const yaml = require(path.join(modules, 'js-yaml'));

// "apps/v1 StatefulSet" -> IoK8sApiAppsV1StatefulSet
function validatorOf({apiVersion = '', kind = ''}) {
  const [version, group = 'core'] = apiVersion.split('/').reverse();
  const capital = word => word.charAt(0).toUpperCase() + word.slice(1);
  const name = 'IoK8sApi' + capital(group.split('.')[0]) + capital(version) + kind;
  return require(path.join(modules, 'kubernetes-models/_schemas', name + '.js')).validate;
}

// What the validator looks at is noted. It looks at all fields that the schema names.
function watched(value, at, seen) {
  if (value === null || typeof value !== 'object') return value;
  return new Proxy(value, {
    get(target, key) {
      if (typeof key === 'symbol') return target[key];
      seen.add(at + '/' + key);
      return watched(target[key], at + '/' + key, seen);
    },
  });
}

function* fieldsOf(value, at) {
  if (value === null || typeof value !== 'object') return;
  for (const key of Object.keys(value)) {
    yield at + '/' + key;
    yield* fieldsOf(value[key], at + '/' + key);
  }
}

// As a strategic merge patch: lists are merged by name.
function merge(base, patch) {
  for (const [key, value] of Object.entries(patch)) {
    if (Array.isArray(value)) base[key] = (base[key] || []).concat(value);
    else if (value && typeof value === 'object') base[key] = merge(base[key] || {}, value);
    else base[key] = value;
  }
  return base;
}

const load = file => yaml.loadAll(fs.readFileSync(file, 'utf8')).filter(Boolean);
let patch = {};
const at = files.indexOf('--patch');
if (at >= 0) patch = load(files.splice(at, 2)[1])[0];

const troubles = [];
let checked = 0;
for (const file of files) {
  for (const object of load(file)) {
    if (object.kind === 'StatefulSet') merge(object, patch);
    const where = path.basename(file) + ' ' + object.kind;
    const validate = validatorOf(object);
    const seen = new Set();
    if (!validate(watched(object, where, seen))) {
      for (const error of validate.errors) troubles.push(where + error.instancePath + ': ' + error.keyword + ' ' + JSON.stringify(error.params));
    }
    for (const field of fieldsOf(object, where)) if (!seen.has(field)) troubles.push(field + ': no such field');
    ++checked;
  }
}
for (const trouble of troubles) console.error(trouble);
if (troubles.length > 0) process.exit(1);
console.log(checked + ' objects are right');
