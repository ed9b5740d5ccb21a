// The viewer as a program: node viewer/run.js, with the arguments that main.js lists.

import { runExample } from '../examples/lib/report.js';
import { runViewer } from './main.js';

await runExample(() => runViewer(process.argv.slice(2)));
