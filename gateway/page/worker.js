import {Feed} from './feed.js';

const feed = new Feed();
self.onconnect = ({ports: [port]}) => feed.add(port);
