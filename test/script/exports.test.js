// What the addon's exports object holds, and what its file is made of.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import { describe, it } from 'node:test';

import { addonPath, loadAddon, skipUnderSanitizer, testingAddonPath, toolEnvironment } from './support/environment.js';

const functions = [
  'getLastError',
  'lockFile',
  'unlockFile',
  'loadCameraBackend',
  'loadTurboJpeg',
  'turboJpegAvailable',
  'turboJpegLoadPath',
  'cameraLoadPath',
  'cameraBackend',
  'cameraInitialize',
  'cameraHasVideoCaptureAuth',
  'cameraAskVideoCaptureAuth',
  'cameraDevicesCount',
  'cameraDeviceUniqueId',
  'cameraDeviceModelId',
  'cameraDeviceName',
  'cameraDeviceType',
  'cameraDeviceFormats',
  'cameraStartCapture',
  'cameraStopCapture',
  'cameraHasFirstFrame',
  'cameraFrameInfo',
  'cameraButtonPressed',
  'cameraButtonTimestamp',
  'cameraGrabFrame',
  'cameraGrabFrameRgba',
  'cameraGrabEncodedFrame',
  'cameraPreviewStart',
  'cameraPreviewStop',
  'cameraPreviewIsRunning',
  'cameraPreviewIsDirect',
  'cameraPreviewReleaseDirectSlot',
  'cameraPreviewReleaseAllDirectSlots',
  'cameraPreviewGetLatest',
  'cameraPreviewGetLatestQualityFrame',
  'cameraRecordingAvailable',
  'cameraRecordingStart',
  'cameraRecordingStop',
  'cameraRecordingStatus',
  'cameraHasVideoProcAmp',
  'cameraVideoProcAmpRange',
  'cameraVideoProcAmpGet',
  'cameraVideoProcAmpSet',
];

const fusionFunctions = ['edofMultibandFuse'];

const dinoLiteFunctions = [
  'loadDinoLite',
  'dinoLiteInit',
  'dinoLiteLastError',
  'dinoLiteSelectBackendForProductId',
  'dinoLiteInitAsync',
  'dinoLiteDeviceCount',
  'dinoLiteDevicesAsync',
  'dinoLiteDeviceId',
  'dinoLiteDeviceName',
  'dinoLiteSelectDevice',
  'dinoLiteSelectDeviceAsync',
  'dinoLiteGetSelectedDevice',
  'dinoLiteSupportsAmr',
  'dinoLiteGetAmr',
  'dinoLiteGetFovx',
  'dinoLiteEnableMicrotouch',
  'dinoLiteEnableMicrotouchAsync',
  'dinoLiteMicrotouchPressed',
  'dinoLiteToggleLed',
  'dinoLiteToggleLedAsync',
  'dinoLiteDebugState',
  'dinoLiteDispose',
  'dinoLiteDisposeAsync',
];

const ostrelFunctions = [
  'loadOstrel',
  'ostrelInit',
  'ostrelLastError',
  'ostrelInitAsync',
  'ostrelDeviceCount',
  'ostrelDevicesAsync',
  'ostrelDeviceUniqueId',
  'ostrelDeviceFriendlyName',
  'ostrelSelectDevice',
  'ostrelSelectDeviceAsync',
  'ostrelGetSelectedDevice',
  'ostrelGetScopeStatus',
  'ostrelGetPixelSizeMicrons',
  'ostrelGetPixelSizeInfo',
  'ostrelGetLensGroupInfo',
  'ostrelCapabilities',
  'ostrelGetFocusPosition',
  'ostrelGetLedState',
  'ostrelTriggerAutoFocusAsync',
  'ostrelSetFocusPositionAsync',
  'ostrelFocusNearAsync',
  'ostrelFocusFarAsync',
  'ostrelSetLedStateAsync',
  'ostrelIsCapturePressed',
  'ostrelVersionInfo',
  'ostrelProtocolVersionInfo',
  'ostrelDispose',
  'ostrelDisposeAsync',
];

const constants = [
  ['VIDEOPROCAMP_BRIGHTNESS', 0],
  ['VIDEOPROCAMP_CONTRAST', 1],
  ['VIDEOPROCAMP_HUE', 2],
  ['VIDEOPROCAMP_SATURATION', 3],
  ['VIDEOPROCAMP_SHARPNESS', 4],
  ['VIDEOPROCAMP_GAMMA', 5],
  ['VIDEOPROCAMP_COLORENABLE', 6],
  ['VIDEOPROCAMP_WHITEBALANCE', 7],
  ['VIDEOPROCAMP_BACKLIGHTCOMPENSATION', 8],
  ['VIDEOPROCAMP_GAIN', 9],
  ['VIDEOPROCAMP_FLAG_AUTO', 1],
  ['VIDEOPROCAMP_FLAG_MANUAL', 2],
  ['RESULT_OK', 0],
  ['RESULT_YES', 0],
  ['RESULT_NO', -256],
  ['STATUS_AUTHORIZED', 0],
];

function toolOutput(command, args) {
  // A sanitized addon has megabytes of symbols.
  const maxBuffer = 2 ** 28;
  const { status, stdout, stderr } = spawnSync(command, args, { encoding: 'utf8', env: toolEnvironment, maxBuffer });
  assert.equal(status, 0, stderr);
  return stdout;
}

describe('the exports object', () => {
  const addon = loadAddon();

  it('holds the functions of the frame and the cameras, their constants, the fusion, and the microscopes, in order', () => {
    assert.deepEqual(Reflect.ownKeys(addon),
      [...functions, ...constants.map(([name]) => name), ...fusionFunctions, ...dinoLiteFunctions, ...ostrelFunctions]);
  });

  it('holds functions without a name of their own', () => {
    for (const name of [...functions, ...fusionFunctions, ...dinoLiteFunctions, ...ostrelFunctions]) {
      assert.equal(typeof addon[name], 'function', name);
      assert.equal(addon[name].name, '', name);
    }
  });

  it('holds the values of the constants', () => {
    for (const [name, value] of constants) {
      assert.ok(Object.is(addon[name], value), `${name} is ${addon[name]}`);
    }
  });

  it('lets script code list, replace and delete every one of them', () => {
    for (const [name, property] of Object.entries(Object.getOwnPropertyDescriptors(addon))) {
      const { enumerable, writable, configurable } = property;
      assert.deepEqual({ enumerable, writable, configurable },
        { enumerable: true, writable: true, configurable: true }, name);
    }
  });

  it('gives functions that need no receiver', () => {
    const { cameraBackend, getLastError } = addon;
    assert.equal(cameraBackend(), 'none');
    assert.equal(getLastError.call(null), '');
  });
});

describe('the built file', () => {
  // The release build keeps its symbols in a file of their own.
  const symbolsPath = fs.existsSync(`${addonPath}.debug`) ? `${addonPath}.debug` : addonPath;
  const dynamicSection = (tag) =>
    [...toolOutput('readelf', ['-d', '-W', addonPath]).matchAll(/^ *\S+ +\((\w+)\) +(.*)$/gm)]
      .filter(([, name]) => name === tag)
      .map(([, , value]) => value);

  it('exports the two symbols that the module loader looks for, and no other', () => {
    const symbols = toolOutput('nm', ['-D', '--defined-only', '--format=posix', addonPath])
      .trim().split('\n').map((line) => line.split(' ')[0]);
    assert.deepEqual(symbols.sort(), ['napi_register_module_v1', 'node_api_module_get_api_version_v1']);
  });

  it('needs no shared library but the C and C++ run-time',
    { skip: skipUnderSanitizer('the sanitizer is a library too') }, () => {
      const allowed = /^(libstdc\+\+\.so\.6|libm\.so\.6|libgcc_s\.so\.1|libc\.so\.6|ld-linux-x86-64\.so\.2)$/;
      const needed = dynamicSection('NEEDED').map((value) => /\[(.*)\]/.exec(value)[1]);
      assert.ok(needed.includes('libc.so.6'));
      assert.deepEqual(needed.filter((name) => !allowed.test(name)), []);
    });

  it('adds no search place for the libraries that it loads at run time', () => {
    assert.deepEqual([...dynamicSection('RPATH'), ...dynamicSection('RUNPATH')], []);
  });

  it('constructs the globals of its units in order', () => {
    // Addresses of the initialisers, in the order in which the loader calls them.
    const [, start, size] = /\.init_array +INIT_ARRAY +(\w+) +\w+ (\w+)/.exec(toolOutput('readelf', ['-S', '-W', addonPath]));
    const [first, end] = [parseInt(start, 16), parseInt(start, 16) + parseInt(size, 16)];
    const called = [...toolOutput('readelf', ['-r', '-W', addonPath]).matchAll(/^(\w+) +\w+ R_X86_64_RELATIVE +(\w+)$/gm)]
      .map(([, place, address]) => [parseInt(place, 16), parseInt(address, 16)])
      .filter(([place]) => place >= first && place < end)
      .sort(([a], [b]) => a - b);
    const names = new Map([...toolOutput('nm', [symbolsPath]).matchAll(/^(\w+) t _GLOBAL__sub_I\.\d+_([a-z]\w*)\.cpp$/gm)]
      .map(([, address, name]) => [parseInt(address, 16), name]));
    assert.deepEqual(called.map(([, address]) => names.get(address)).filter(Boolean),
      ['common', 'camera_globals', 'dino_lite_globals', 'ostrel_globals']);
  });

  it('stays loaded until the process ends', () => {
    assert.match(dynamicSection('FLAGS_1').join(' '), /\bNODELETE\b/);
  });
});

describe('the test build', () => {
  it('holds what ships, and `testing` behind it', () => {
    assert.deepEqual(Reflect.ownKeys(loadAddon(testingAddonPath)), [...Reflect.ownKeys(loadAddon()), 'testing']);
  });

  it('is not in the file that ships', () => {
    const names = [...Object.keys(loadAddon(testingAddonPath).testing), 'testing', 'fake_control'];
    const lacking = (file) => {
      const bytes = fs.readFileSync(file);
      return names.filter((name) => !bytes.includes(`${name}\0`));
    };
    assert.deepEqual(lacking(testingAddonPath), []);
    assert.deepEqual(lacking(addonPath), names);
  });
});
