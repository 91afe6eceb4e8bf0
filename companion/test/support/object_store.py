"""An OpenStack Swift that speaks S3, in one process: a proxy with its s3api in front, and behind it an
account, a container and an object server of one replica. Objects lie in memory, the listings' databases
in a folder of its own that goes with it. Everything listens on loopback, on ports of the system's choice.

Says the proxy's port on standard output when the bucket can be used, and ends with standard input.
"""

import eventlet

eventlet.monkey_patch()

import logging
import os
import sys
import tempfile

from eventlet import wsgi
from swift.account.server import AccountController
from swift.common import utils
from swift.common.middleware import catch_errors, tempauth
from swift.common.middleware.s3api import s3api
from swift.common.ring import RingData
from swift.common.ring.builder import RingBuilder
from swift.common.swob import Request
from swift.container.server import ContainerController
from swift.obj.mem_server import ObjectController
from swift.proxy.server import Application

ACCESS_KEY, SECRET_KEY, BUCKET, REGION = sys.argv[1:]
ACCOUNT = ACCESS_KEY.split(":")[0]


def listening():
    return eventlet.listen(("127.0.0.1", 0), backlog=128)


def write_ring(folder, name, port):
    """One device, which holds all of the one replica."""
    builder = RingBuilder(part_power=1, replicas=1, min_part_hours=0)
    builder.add_dev({
        "region": 1, "zone": 1, "weight": 1, "device": "disk", "meta": "",
        "ip": "127.0.0.1", "port": port, "replication_ip": "127.0.0.1", "replication_port": port,
    })
    builder.rebalance()
    builder.get_ring().save(os.path.join(folder, f"{name}.ring.gz"))


def serve(listener, app):
    quiet = logging.getLogger("access")
    quiet.addHandler(logging.NullHandler())
    quiet.propagate = False
    eventlet.spawn_n(wsgi.server, listener, app, quiet, log_output=False, keepalive=True)


def backends(conf):
    """Starts the three servers behind the proxy, and says in the rings where they are."""
    kinds = {"account": AccountController, "container": ContainerController, "object": ObjectController}
    listeners = {kind: listening() for kind in kinds}
    for kind, listener in listeners.items():
        write_ring(conf["swift_dir"], kind, listener.getsockname()[1])
    for kind, controller in kinds.items():
        serve(listeners[kind], controller(dict(conf)))


class Cache:
    """What memcached would be to the proxy; the tests' few names need not be forgotten in time."""

    def __init__(self):
        self.values = {}

    def get(self, key, **_):
        return self.values.get(key)

    def set(self, key, value, **_):
        self.values[key] = value

    def delete(self, key, **_):
        self.values.pop(key, None)


def caching(app):
    cache = Cache()

    def handle(env, start_response):
        env["swift.cache"] = cache
        return app(env, start_response)

    return handle


def front(conf, storage):
    """What a request meets before the storage, the outermost last."""
    users = {f"user_{ACCESS_KEY.replace(':', '_')}": f"{SECRET_KEY} .admin"}
    app = tempauth.filter_factory(conf, **users)(storage)
    app = s3api.filter_factory(
        conf, location=REGION, storage_domain="localhost", max_bucket_listing="20",
        allow_multipart_uploads="false", auth_pipeline_check="false")(app)
    return catch_errors.filter_factory(conf)(caching(app))


def main():
    utils.HASH_PATH_SUFFIX = b"of this store"
    with tempfile.TemporaryDirectory(prefix="object-store-") as folder:
        os.mkdir(os.path.join(folder, "disk"))
        conf = {"swift_dir": folder, "devices": folder, "mount_check": "false",
                "account_autocreate": "true", "log_level": "CRITICAL"}
        backends(conf)
        storage = Application(conf)
        bucket = Request.blank(f"/v1/AUTH_{ACCOUNT}/{BUCKET}", method="PUT")
        made = bucket.get_response(caching(storage))
        if made.status_int != 201:
            raise SystemExit(f"The bucket can't be made: {made.status}")
        listener = listening()
        serve(listener, front(conf, storage))
        print(listener.getsockname()[1], flush=True)
        eventlet.tpool.execute(sys.stdin.read)


main()
