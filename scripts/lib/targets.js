// The build's targets by what they are for.

/** What it takes to run the addon and the virtual microscope, without tests and benchmarks. */
export const addonTargets = ['ostrel_native', 'simulated_cnokhwa', 'simulated_dino_lite', 'simulated_ostrel'];

/** What direct delivery takes beside that, where no camera library can do it: the virtual microscope's own. */
export const directTargets = ['ostrel_native_direct'];
