// The native object as it stands, for import native from 'ostrel-native'.

export { default } from './index.cjs';
