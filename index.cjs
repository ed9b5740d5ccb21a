// The native object as it stands, for require('ostrel-native').
'use strict';

const { loadNative } = require('./lib/load-native.cjs');

module.exports = loadNative();
