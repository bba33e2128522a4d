// Browsers allow six connections to a host: all tabs share the one that is held here.
import {Feed} from './feed.js';

const feed = new Feed();
self.onconnect = ({ports: [port]}) => feed.add(port);
